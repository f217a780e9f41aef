#include "spat_conv_control_socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr mode_t MODE = 0660;
constexpr int BACKLOG = 8;

sockaddr_un MakeAddress(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

int OpenStreamSocket() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
}

// Connects to the socket file. Returns 0 or the error number.
int TryConnect(const std::string& path) {
    const sockaddr_un address = MakeAddress(path);
    const int probe = OpenStreamSocket();
    const bool isConnected = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    const int error = isConnected ? 0 : errno;
    close(probe);
    return error;
}

// Removes a left-over socket file. Returns the reason why the path cannot be used, or "".
std::string RemoveLeftOver(const std::string& path) {
    struct stat file = {};
    if (lstat(path.c_str(), &file) != 0) {
        return errno == ENOENT ? "" : strerror(errno);
    }
    if (!S_ISSOCK(file.st_mode)) {
        return "the file exists and is not a socket";
    }
    const int error = TryConnect(path);
    if (error == 0 || error == EAGAIN) { // EAGAIN: too many clients wait
        return "another process serves this socket";
    }
    if (error == ECONNREFUSED && unlink(path.c_str()) == 0) {
        return "";
    }
    return std::string("cannot replace the left-over socket: ") + strerror(error == ECONNREFUSED ? errno : error);
}

} // namespace

std::string v2xspatconv_controlSocket::Listen() {
    const sockaddr_un address = MakeAddress(m_path);
    struct stat file = {};
    // fchmod restricts the file from its creation on. fchmodat ignores the umask, and does not follow a symbolic link.
    if (m_descriptor < 0 || fchmod(m_descriptor, MODE) != 0 ||
        bind(m_descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        lstat(m_path.c_str(), &file) != 0) {
        return strerror(errno);
    }
    m_device = file.st_dev;
    m_inode = file.st_ino;
    const bool isListening =
        fchmodat(AT_FDCWD, m_path.c_str(), MODE, AT_SYMLINK_NOFOLLOW) == 0 && listen(m_descriptor, BACKLOG) == 0;
    return isListening ? "" : strerror(errno);
}

std::string v2xspatconv_controlSocket::Open(const char* path) {
    m_path = path;
    const std::string obstacle = RemoveLeftOver(m_path);
    if (!obstacle.empty()) {
        return obstacle;
    }
    m_descriptor = OpenStreamSocket();
    const std::string reason = Listen();
    if (!reason.empty()) {
        Close();
    }
    return reason;
}

void v2xspatconv_controlSocket::Close() {
    struct stat file = {};
    if (m_inode != 0 && lstat(m_path.c_str(), &file) == 0 && file.st_dev == m_device && file.st_ino == m_inode) {
        unlink(m_path.c_str());
    }
    close(m_descriptor);
    m_descriptor = -1;
    m_inode = 0;
}
