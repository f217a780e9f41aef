#include "v2xlog_output.h"

#include "v2x/v2xlog.h"
#include "v2xlog_stderr.h"

#include <cstdio>

namespace {

constexpr char kLetters[] = "?FEWIDVT"; // by level
static_assert(sizeof(kLetters) == V2XLOG_TRACE + 2);

} // namespace

v2xlog_output::v2xlog_output(const char* path, const char* name, bool useStderr)
    : m_useStderr(useStderr), m_stamp("%Y-%m-%d %H:%M:%S.%e ", spdlog::pattern_time_type::local, "") {
    if (path != nullptr) {
        m_file.emplace(path);
    }
    std::snprintf(m_name, sizeof(m_name), "%s", name);
}

bool v2xlog_output::Open() {
    const auto now = Clock::now();
    if (!m_file || m_file->Ready(now)) {
        return true;
    }
    NoteOutage(now);
    return false;
}

void v2xlog_output::Write(const char* name, int32_t level, std::string_view text) noexcept {
    try {
        const bool filed = ToFile(name, level, text);
        if (!m_useStderr && (filed || !m_file)) {
            return;
        }
        m_buffer.clear();
        Append(name, level, text);
        const bool shown = v2xlog_WriteStderr({m_buffer.data(), m_buffer.size()});
        if (!filed && m_outage) {
            ++(shown ? m_outage->elsewhere : m_outage->lost);
        }
    } catch (...) { // no memory for the line
        if (m_outage) {
            ++m_outage->lost;
        }
    }
}

void v2xlog_output::Append(const char* name, int32_t level, std::string_view text) {
    const char letter[] = {kLetters[level], ' '};
    m_stamp.format(spdlog::details::log_msg({}, spdlog::level::info, {}), m_buffer);
    m_buffer.append(std::string_view(letter, sizeof(letter)));
    m_buffer.append(std::string_view(name));
    m_buffer.push_back(' ');
    m_buffer.append(text);
    m_buffer.push_back('\n');
}

// The line that ends an outage and the first line after it go out as one, so that a disk with room for a few bytes does
// not end the outage again and again.
bool v2xlog_output::ToFile(const char* name, int32_t level, std::string_view text) {
    if (!m_file) {
        return false;
    }
    const auto now = Clock::now();
    if (m_file->Ready(now)) {
        m_buffer.clear();
        if (m_file->Torn()) {
            m_buffer.push_back('\n');
        }
        AppendEndOfOutage(now);
        Append(name, level, text);
        if (m_file->Write({m_buffer.data(), m_buffer.size()}, now)) {
            m_outage.reset();
            return true;
        }
    }
    NoteOutage(now);
    return false;
}

void v2xlog_output::AppendEndOfOutage(Clock::time_point now) {
    if (!m_outage) {
        return;
    }
    char text[160];
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(now - m_outage->start).count();
    const int length = std::snprintf(
        text, sizeof(text),
        "v2xlog: this file could not be written for %lld s: %llu lines went to standard error, %llu were lost",
        static_cast<long long>(seconds), static_cast<unsigned long long>(m_outage->elsewhere),
        static_cast<unsigned long long>(m_outage->lost));
    Append(m_name, V2XLOG_WARN, {text, static_cast<size_t>(length)});
}

void v2xlog_output::NoteOutage(Clock::time_point now) {
    if (!m_outage) {
        m_outage = Outage{now};
    }
    if (m_outage->reported) {
        return;
    }
    char text[4096];
    const int length = std::snprintf(
        text, sizeof(text), "v2xlog: cannot write %.3600s: %s; logging to standard error until it can be written\n",
        m_file->Path().c_str(), m_file->Reason());
    m_outage->reported = v2xlog_WriteStderr({text, static_cast<size_t>(length)});
}
