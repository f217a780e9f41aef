#include "output.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace sim {

bool Output::Line(const std::string& line) {
    const std::string whole = line + '\n';
    const std::lock_guard lock(m_mutex);
    if (m_error == 0 &&
        (std::fwrite(whole.data(), 1, whole.size(), m_file) != whole.size() || std::fflush(m_file) != 0)) {
        m_error = errno;
    }
    return m_error == 0;
}

void Output::CheckFailure() {
    const std::lock_guard lock(m_mutex);
    if (m_error != 0 && m_error != EPIPE) {
        throw std::runtime_error(std::string("cannot write the output: ") + std::strerror(m_error));
    }
}

} // namespace sim
