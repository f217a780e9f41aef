// Standard output or standard error, line by line, from any thread.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

namespace sim {

class Output {
public:
    explicit Output(FILE* file) : m_file(file) {}

    // Writes the line and its end, at once. Returns false when the file takes nothing any more; what comes later is
    // then dropped.
    bool Line(const std::string& line);

    // Throws std::runtime_error when a write failed otherwise than by the reader going away.
    void CheckFailure();

private:
    FILE* m_file;
    std::mutex m_mutex;
    int m_error = 0;
};

} // namespace sim
