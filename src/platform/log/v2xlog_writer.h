// The one way of all lines: repeats are collapsed, the rest goes to the output, under one lock. Never destroyed: lines
// may come from other threads until the process is gone.
#pragma once

#include "v2xlog_output.h"
#include "v2xlog_repeat.h"

#include <condition_variable>
#include <mutex>

class v2xlog_writer {
public:
    using Clock = v2xlog_repeat::Clock;

    v2xlog_writer(const char* path, const char* defaultTag, bool collapse, bool useStderr);
    v2xlog_writer(const v2xlog_writer&) = delete;
    v2xlog_writer& operator=(const v2xlog_writer&) = delete;

    bool Open() { return m_output.Open(); }

    // The tag's handle, for null that of the default tag, which is null while it is not registered.
    V2X_LOGHANDLE Resolve(V2X_LOGHANDLE handle) const;

    // Whether lines of a level are wanted under a resolved handle.
    static bool Wanted(V2X_LOGHANDLE handle, int32_t level);

    // Writes or counts a line with a resolved handle, `times` times. `placed`: the text starts with
    // "file:function:line:".
    void Write(const v2xlog_line& line, bool placed, uint32_t times = 1) noexcept;

    // Writes the counts of repeats that still run, and nothing any more afterwards: at the end of the process the C
    // library takes the buffer of an open file away without asking who is writing to it.
    void Close() noexcept;

private:
    bool Suppressed(const v2xlog_line& line, bool placed, uint32_t times);
    void WriteNow(const v2xlog_line& line);
    v2xlog_repeat::Report Counter(const char* before, const char* what);
    void WakeThread();
    bool StartThread();
    static void* ThreadMain(void* self);
    void Run();

    char m_defaultTag[V2XLOG_NAME_SIZE]{};
    const bool m_collapse;
    bool m_threadRuns = false;
    bool m_closed = false;
    Clock::time_point m_threadDue = Clock::time_point::max(); // until when the thread sleeps
    std::mutex m_mutex;
    std::condition_variable m_wake;
    v2xlog_output m_output;
    v2xlog_repeat m_lines;
    v2xlog_repeat m_places;
};
