// Clients of the control socket that watch the daemon, as many as it accepts.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

// The clients live as long as the object. Ends the program if a client cannot connect.
class Watchers {
public:
    // If `isReading` is true, a child process reads and discards the lines of all clients; otherwise nobody reads.
    Watchers(const std::string& path, bool isReading);
    ~Watchers();
    Watchers(const Watchers&) = delete;
    Watchers& operator=(const Watchers&) = delete;

    // The process that reads; this process if nobody reads.
    pid_t pid() const { return m_reader > 0 ? m_reader : m_self; }

private:
    std::vector<int> m_clients;
    pid_t m_self;
    pid_t m_reader = 0;
};
