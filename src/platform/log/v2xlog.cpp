// Initializes the log and writes lines, hex dumps and formatted messages. The tags are in v2xlog_registry.cpp.
#include "v2x/v2xlog.h"

#include "v2xlog_output.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>

namespace {

using Clock = v2xlog_output::Clock;

constexpr int64_t LIMIT_WINDOW = std::chrono::nanoseconds(std::chrono::seconds(10)).count();
constexpr uint32_t LIMIT_LINES = 300;
constexpr int32_t LIMIT_LEVEL = V2XLOG_DEBUG; // highest level that is rate-limited
constexpr int32_t BYTES_PER_LINE = 16;

// Restores errno in its destructor, because a caller may use errno after logging.
class ErrnoRestorer {
public:
    ErrnoRestorer() = default;
    ~ErrnoRestorer() { errno = m_errno; }
    ErrnoRestorer(const ErrnoRestorer&) = delete;
    ErrnoRestorer& operator=(const ErrnoRestorer&) = delete;

private:
    const int m_errno = errno;
};

// Applies the rate limit to `times` equal lines of one log statement. Returns true if the first line must be written.
// Otherwise counts the lines as suppressed and returns false.
bool ApplyLimit(v2xlog_site& site, uint64_t textHash, uint32_t times, Clock::time_point time) {
    const int64_t now = std::chrono::nanoseconds(time.time_since_epoch()).count();
    if (now - site.windowStart >= LIMIT_WINDOW) {
        site.windowStart = now;
        site.written = 0;
    }
    const bool isRepeated = textHash == site.textHash && now - site.textTime < LIMIT_WINDOW;
    if (isRepeated || site.written >= LIMIT_LINES) {
        site.suppressed += times;
        return false;
    }
    ++site.written;
    site.textHash = textHash;
    site.textTime = now;
    return true;
}

// Writes the lines of all threads. A mutex serializes the writes.
class Writer {
public:
    Writer(const char* path, const char* defaultTag, bool hasLimit, bool useStderr)
        : m_defaultTag(defaultTag, strnlen(defaultTag, V2XLOG_NAME_SIZE - 1)), m_hasLimit(hasLimit),
          m_output(path, m_defaultTag.c_str(), useStderr) {}

    bool Open() { return m_output.Open(Clock::now()); }

    // Returns `handle`, or the default tag's handle if `handle` is null. The result is null if the default tag is not
    // registered.
    V2X_LOGHANDLE Resolve(V2X_LOGHANDLE handle) const {
        if (handle == nullptr) {
            v2xlog_GetTagHandle(m_defaultTag.c_str(), &handle);
        }
        return handle;
    }

    // Writes a line `times` times. `handle` is a result of Resolve. If `site` is null, the line is not rate-limited.
    void Write(V2X_LOGHANDLE handle, int32_t level, std::string_view text, v2xlog_site* site, uint32_t times) {
        v2xlog_line line{handle == nullptr ? m_defaultTag.c_str() : handle->name, level, text, 0};
        const std::lock_guard lock(m_mutex);
        if (m_isClosed) {
            return;
        }
        const auto now = Clock::now();
        if (m_hasLimit && site != nullptr && level <= LIMIT_LEVEL) {
            const uint64_t hash = std::hash<std::string_view>{}(text) ^ std::hash<const void*>{}(handle);
            if (!ApplyLimit(*site, hash + static_cast<uint64_t>(level), times, now)) {
                return;
            }
            line.suppressed = std::exchange(site->suppressed, times - 1);
            times = 1;
        }
        for (; times > 0; --times) {
            m_output.Write(line, now);
        }
    }

    // Drops all later lines. exit() calls Close before the C library frees the file's buffer: another thread must not
    // write to the freed buffer.
    void Close() {
        const std::lock_guard lock(m_mutex);
        m_isClosed = true;
    }

private:
    const std::string m_defaultTag;
    const bool m_hasLimit;
    bool m_isClosed = false;
    std::mutex m_mutex;
    v2xlog_output m_output;
};

constinit std::atomic<Writer*> g_writer{nullptr}; // never freed: threads may log until the process ends
constinit std::mutex g_initMutex;

void CloseAtExit() {
    g_writer.load(std::memory_order_acquire)->Close();
}

// Returns the writer if lines of `level` are enabled, else null. Replaces `handle` by the result of Resolve.
Writer* FindEnabledWriter(V2X_LOGHANDLE& handle, int32_t level) {
    Writer* const writer = g_writer.load(std::memory_order_acquire);
    if (writer == nullptr) {
        return nullptr;
    }
    handle = writer->Resolve(handle);
    const int32_t enabled = handle == nullptr ? V2XLOG_INFO : handle->level.load(std::memory_order_relaxed);
    return level > V2XLOG_UNDO && level <= V2XLOG_TRACE && level <= enabled ? writer : nullptr;
}

// Replaces control characters by blanks, so that one message is one line.
void ReplaceControls(char* text, size_t length) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    std::replace_if(text, text + length, isControl, ' ');
}

// Formats up to sixteen bytes as "0010  de ad ...   |..|".
std::string_view FormatDumpLine(char (&text)[128], int64_t offset, const uint8_t* data, int32_t count) {
    constexpr char DIGITS[] = "0123456789abcdef";
    char* out = text + std::snprintf(text, sizeof(text), "%04x  ", static_cast<unsigned>(offset));
    for (int32_t i = 0; i < BYTES_PER_LINE; ++i) {
        *out++ = i < count ? DIGITS[data[i] >> 4] : ' ';
        *out++ = i < count ? DIGITS[data[i] & 15] : ' ';
        *out++ = ' ';
    }
    out = std::copy_n("  |", 3, out);
    out = std::transform(data, data + count, out,
                         [](uint8_t byte) { return byte >= ' ' && byte < 0x7f ? static_cast<char>(byte) : '.'; });
    *out++ = '|';
    return {text, static_cast<size_t>(out - text)};
}

} // namespace

int32_t v2xlog_Init(const char* path, const char* defaultTag, int32_t useFile, int32_t limit, int32_t useStderr) {
    if (path == nullptr || defaultTag == nullptr) {
        return -2;
    }
    const std::lock_guard lock(g_initMutex);
    if (g_writer.load(std::memory_order_relaxed) != nullptr) {
        return -4;
    }
    auto* const writer = new Writer(useFile != 0 ? path : nullptr, defaultTag, limit != 0, useStderr != 0);
    const bool isOpen = writer->Open();
    g_writer.store(writer, std::memory_order_release);
    std::atexit(CloseAtExit);
    return isOpen ? 0 : -3;
}

void v2xlog_Print(V2X_LOGHANDLE handle, int32_t level, const char* text) {
    const ErrnoRestorer restorer;
    Writer* const writer = text == nullptr ? nullptr : FindEnabledWriter(handle, level);
    if (writer == nullptr) {
        return;
    }
    char line[V2XLOG_TEXT_SIZE];
    const size_t length = strnlen(text, sizeof(line) - 1);
    std::memcpy(line, text, length);
    ReplaceControls(line, length);
    writer->Write(handle, level, {line, length}, nullptr, 1);
}

void v2xlog_HexDump(V2X_LOGHANDLE handle, int32_t level, const uint8_t* data, int32_t len) {
    const ErrnoRestorer restorer;
    Writer* const writer = data == nullptr || len <= 0 ? nullptr : FindEnabledWriter(handle, level);
    if (writer == nullptr) {
        return;
    }
    char line[128];
    for (int64_t offset = 0; offset < len; offset += BYTES_PER_LINE) {
        const int32_t count = static_cast<int32_t>(std::min<int64_t>(BYTES_PER_LINE, len - offset));
        writer->Write(handle, level, FormatDumpLine(line, offset, data + offset, count), nullptr, 1);
    }
}

void v2xlog_Format(V2X_LOGHANDLE handle, int32_t level, uint32_t times, v2xlog_site& site, const char* function,
                   const char* format, ...) {
    const ErrnoRestorer restorer;
    Writer* const writer = FindEnabledWriter(handle, level);
    if (writer == nullptr) {
        return;
    }
    char text[V2XLOG_TEXT_SIZE];
    const int head = std::snprintf(text, sizeof(text), "%s:%s:%d:", site.file, function, site.line);
    const size_t start = std::min(static_cast<size_t>(std::max(head, 0)), sizeof(text) - 1);
    va_list arguments;
    va_start(arguments, format);
    int body = std::vsnprintf(text + start, sizeof(text) - start, format, arguments);
    va_end(arguments);
    if (body < 0) { // vsnprintf cannot convert the arguments: log the format string itself
        body = std::snprintf(text + start, sizeof(text) - start, "%s", format);
    }
    const size_t length = std::min(start + static_cast<size_t>(std::max(body, 0)), sizeof(text) - 1);
    ReplaceControls(text, length);
    writer->Write(handle, level, {text, length}, &site, times);
}
