#include "input.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace msg {

Input::Input(const std::string& path)
    : m_file(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)),
      m_name(path == "-" ? "standard input" : path) {
    if (m_file < 0) {
        throw std::runtime_error(m_name + ": cannot be opened: " + std::strerror(errno));
    }
}

Input::~Input() {
    if (m_file != STDIN_FILENO) {
        close(m_file);
    }
}

bool Input::Fill() {
    if (m_isEnded) {
        return false;
    }
    ssize_t size = 0;
    do {
        size = read(m_file, m_buffer.data(), m_buffer.size());
    } while (size < 0 && errno == EINTR);
    if (size < 0) {
        throw std::runtime_error(m_name + ": cannot be read: " + std::strerror(errno));
    }
    m_at = 0;
    m_held = static_cast<size_t>(size);
    m_isEnded = size == 0;
    return !m_isEnded;
}

bool Input::Line(std::string& line) {
    line.clear();
    int byte = Get();
    if (byte == END) {
        return false;
    }
    for (; byte != END && byte != '\n'; byte = Get()) {
        if (line.size() <= MAX_LINE) {
            line += static_cast<char>(byte);
        }
    }
    return true;
}

} // namespace msg
