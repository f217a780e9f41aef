// Programs under test, run as their user would run them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "temp_folder.h"

// A started program; standard output and error go to files. Killed when it goes out of scope.
class Process {
public:
    // argv[0] is a path; `environment` is added to the test's own ("NAME=value").
    Process(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
            const std::string& outFile, const std::string& errFile);
    ~Process();
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int sig) const;
    // Stops it (SIGSTOP), and waits until every thread of it stands. False when it has ended.
    bool stop();
    // Waits for the end, at most so long. Exit status, 128 + signal when one ended it, -1 when it still runs.
    int wait(int milliseconds);
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid;
    bool m_ended = false;
    int m_status = 0;
};
