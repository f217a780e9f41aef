// The socket file of the control socket. Private to the control socket. Main thread.
#pragma once

#include <string>
#include <sys/types.h>

// A listening stream socket at a path. Replaces the file of a socket that nobody listens at. The file has mode 0660.
class v2xspatconv_controlSocket {
public:
    // Opens the socket. Returns the reason of a failure, or "" on success.
    std::string Open(const char* path);
    // Closes the socket. Removes its file, unless another program has replaced the file.
    void Close();

    int Descriptor() const { return m_descriptor; } // -1 if the socket is not open

private:
    std::string Listen();

    int m_descriptor = -1;
    std::string m_path;
    dev_t m_device = 0; // identity of the file
    ino_t m_inode = 0;
};
