// The bytes of a file or of standard input, as they come: what a pipe holds is handed on without waiting for more.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace msg {

class Input {
public:
    static constexpr int END = -1;
    static constexpr size_t MAX_LINE = size_t{8} << 20;

    // "-" is standard input. Throws std::runtime_error when the file cannot be opened.
    explicit Input(const std::string& path);
    // Reads an open file; `name` is for messages.
    Input(int file, std::string name) : m_file(file), m_name(std::move(name)) {}
    ~Input();
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;

    const std::string& Name() const { return m_name; }

    // The next byte, 0 to 255, or END. Throws std::runtime_error when reading fails.
    int Get() { return m_at < m_held || Fill() ? m_buffer[m_at++] : END; }

    // The next line, without its end; false at the end of the input. Of a line longer than MAX_LINE only its first
    // MAX_LINE + 1 characters are kept. Throws as Get does.
    bool Line(std::string& line);

private:
    bool Fill();

    int m_file;
    std::string m_name;
    size_t m_at = 0;
    size_t m_held = 0;
    bool m_isEnded = false; // a terminal would begin anew
    std::array<uint8_t, 65536> m_buffer{};
};

} // namespace msg
