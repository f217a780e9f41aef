#include "output.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <unistd.h>

namespace msg {

Output::Output() : m_file(STDOUT_FILENO), m_name("standard output") {}

Output::Output(const std::string& path)
    : m_file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666)), m_name(path) {
    if (m_file < 0) {
        throw std::runtime_error(m_name + ": cannot be opened: " + std::strerror(errno));
    }
}

Output::~Output() {
    if (m_file > STDERR_FILENO) {
        close(m_file);
    }
}

void Output::Write(std::string_view piece) const {
    while (!piece.empty()) {
        const ssize_t taken = write(m_file, piece.data(), piece.size());
        if (taken >= 0) {
            piece.remove_prefix(static_cast<size_t>(taken));
        } else if (errno != EINTR) {
            throw std::runtime_error(m_name + ": cannot be written: " + std::strerror(errno));
        }
    }
}

void Output::Close() {
    const int file = m_file;
    m_file = -1;
    if (file >= 0 && close(file) != 0) {
        throw std::runtime_error(m_name + ": cannot be written: " + std::strerror(errno));
    }
}

} // namespace msg
