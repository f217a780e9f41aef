// Programs under test, run like a user runs them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "temp_folder.h"

// A running program; standard output and error go to files. The destructor kills it.
class Process {
public:
    // argv[0] is a path; `environment` ("NAME=value") extends the test's own.
    Process(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
            const std::string& outFile, const std::string& errFile);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int sig) const;
    // Sends SIGSTOP and waits until every thread has stopped. False when it has ended.
    bool stop();
    // Exit status, 128 + signal after a fatal signal, -1 while it still runs after the time out.
    int wait(int milliseconds);
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid;
    bool m_ended = false;
    int m_status = 0;
};
