#include "v2xlog_writer.h"

#include <algorithm>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <pthread.h>

namespace {

using namespace std::chrono_literals;

constexpr v2xlog_repeat::Rule kSameLine{.allowed = 1, .window = 2s, .byLevel = true};
constexpr v2xlog_repeat::Rule kSamePlace{.allowed = 300, .window = 10s, .byLevel = false};
constexpr size_t kStackSize = size_t{256} * 1024;

// "file:function:line:" at the head of a text; empty where there is none.
std::string_view PlaceOf(std::string_view text) {
    size_t end = 0;
    for (int colon = 0; colon < 3; ++colon) {
        end = text.find(':', end);
        if (end == std::string_view::npos) {
            return {};
        }
        ++end;
    }
    return text.substr(0, end);
}

} // namespace

v2xlog_writer::v2xlog_writer(const char* path, const char* defaultTag, bool collapse, bool useStderr)
    : m_collapse(collapse), m_output(path, defaultTag, useStderr), m_lines(kSameLine, Counter("repeated ", "times")),
      m_places(kSamePlace, Counter("", "more lines from here")) {
    std::snprintf(m_defaultTag, sizeof(m_defaultTag), "%s", defaultTag);
}

V2X_LOGHANDLE v2xlog_writer::Resolve(V2X_LOGHANDLE handle) const {
    if (handle == nullptr) {
        v2xlog_GetTagHandle(m_defaultTag, &handle);
    }
    return handle;
}

bool v2xlog_writer::Wanted(V2X_LOGHANDLE handle, int32_t level) {
    const int32_t wanted = handle == nullptr ? V2XLOG_INFO : handle->level.load(std::memory_order_relaxed);
    return level > V2XLOG_UNDO && level <= V2XLOG_TRACE && level <= wanted;
}

void v2xlog_writer::Write(const v2xlog_line& line, bool placed, uint32_t times) noexcept {
    const std::lock_guard lock(m_mutex);
    while (times > 0) {
        if (m_collapse && Suppressed(line, placed, times)) {
            return;
        }
        WriteNow(line);
        --times;
    }
}

void v2xlog_writer::Close() noexcept {
    const std::lock_guard lock(m_mutex);
    const auto now = Clock::now();
    m_lines.ReportAll(now);
    m_places.ReportAll(now);
    m_closed = true;
}

// True when the line is one too many: then all its times are counted.
bool v2xlog_writer::Suppressed(const v2xlog_line& line, bool placed, uint32_t times) {
    const auto now = Clock::now();
    m_lines.ReportDue(now);
    m_places.ReportDue(now);
    v2xlog_line place = line;
    place.text = placed && line.level <= V2XLOG_WARN ? PlaceOf(line.text) : std::string_view{};
    if (m_lines.Count(line, times, now) || (!place.text.empty() && m_places.Count(place, times, now))) {
        WakeThread();
        return true;
    }
    m_lines.Pass(line, now);
    if (!place.text.empty()) {
        m_places.Pass(place, now);
    }
    return false;
}

void v2xlog_writer::WriteNow(const v2xlog_line& line) {
    if (!m_closed) {
        m_output.Write(line.handle == nullptr ? m_defaultTag : line.handle->name, line.level, line.text);
    }
}

v2xlog_repeat::Report v2xlog_writer::Counter(const char* before, const char* what) {
    return [this, before, what](const v2xlog_line& line, uint64_t count, int64_t seconds) {
        if (!Wanted(line.handle, line.level)) {
            return;
        }
        char text[V2XLOG_TEXT_SIZE + 80];
        const int length =
            std::snprintf(text, sizeof(text), "%.*s [%s%" PRIu64 " %s in %" PRId64 " s]",
                          static_cast<int>(line.text.size()), line.text.data(), before, count, what, seconds);
        WriteNow({line.handle, line.level, {text, static_cast<size_t>(length)}});
    };
}

// Sees to it that the thread wakes up in time for the next count; while none is pending it sleeps for good. Where no
// thread can be had the next line writes what is due, and the next count asks for a thread again.
void v2xlog_writer::WakeThread() {
    const auto due = std::min(m_lines.Due(), m_places.Due());
    if (due == m_threadDue || (m_threadRuns && due > m_threadDue)) {
        return;
    }
    m_threadDue = due;
    m_threadRuns = m_threadRuns || StartThread();
    m_wake.notify_one();
}

bool v2xlog_writer::StartThread() {
    sigset_t all;
    sigfillset(&all);
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStackSize);
    pthread_attr_setsigmask_np(&attributes, &all);
    pthread_t thread{};
    const bool started = pthread_create(&thread, &attributes, &ThreadMain, this) == 0;
    pthread_attr_destroy(&attributes);
    return started;
}

void* v2xlog_writer::ThreadMain(void* self) {
    pthread_setname_np(pthread_self(), "v2xlog");
    static_cast<v2xlog_writer*>(self)->Run();
    return nullptr;
}

void v2xlog_writer::Run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        const auto now = Clock::now();
        m_lines.ReportDue(now);
        m_places.ReportDue(now);
        m_threadDue = std::min(m_lines.Due(), m_places.Due());
        if (m_threadDue == Clock::time_point::max()) {
            m_wake.wait(lock);
        } else {
            m_wake.wait_until(lock, m_threadDue);
        }
    }
}
