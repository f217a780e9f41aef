// Programs under test, run as their user would run them.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

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
    // Waits for the end, at most so long. Exit status, 128 + signal when one ended it, -1 when it still runs.
    int wait(int milliseconds);
    pid_t pid() const { return m_pid; }

private:
    pid_t m_pid;
    bool m_ended = false;
    int m_status = 0;
};

// A folder in TMPDIR or else /tmp, removed with all it holds when it goes out of scope.
class TempFolder {
public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& text);

// Asks again until it is so, at most so long.
template <typename Condition>
bool eventually(Condition condition, int milliseconds = 20000);

// ---- template
#include <chrono>
#include <thread>

template <typename Condition>
bool eventually(Condition condition, int milliseconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
