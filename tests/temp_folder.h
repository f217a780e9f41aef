// For tests of files and threads: a temporary folder, whole files, waiting with a deadline.
#pragma once

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

// A new folder in TMPDIR, or in /tmp without it. The destructor removes it with its content.
class TempFolder {
public:
    TempFolder() {
        const char* const place = getenv("TMPDIR");
        m_path = std::string(place != nullptr && *place != '\0' ? place : "/tmp") + "/v2x_test.XXXXXX";
        if (mkdtemp(m_path.data()) == nullptr) {
            abort();
        }
    }
    ~TempFolder() {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    TempFolder(const TempFolder&) = delete;
    TempFolder& operator=(const TempFolder&) = delete;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

inline std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
}

// Polls the condition; false after the time out.
template <typename Condition>
bool eventually(Condition condition, int milliseconds = 20000) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}
