// The calls that write: start, lines, dumps and formatted messages. The registry is in v2xlog_registry.cpp.
#include "v2x/v2xlog.h"

#include "v2xlog_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace {

constinit std::atomic<v2xlog_writer*> g_writer{nullptr}; // never freed
constinit std::mutex g_initMutex;
constinit pid_t g_process = 0;

// Callers log what errno says and then go on to use it.
class KeepErrno {
public:
    KeepErrno() = default;
    ~KeepErrno() { errno = m_errno; }
    KeepErrno(const KeepErrno&) = delete;
    KeepErrno& operator=(const KeepErrno&) = delete;

private:
    const int m_errno = errno;
};

// The counts that are still running at exit. A forked child has neither the counts' thread nor a lock to rely on.
void CloseAtExit() {
    if (::getpid() == g_process) {
        g_writer.load(std::memory_order_acquire)->Close();
    }
}

// The writer when lines of this level are wanted; `handle` becomes the resolved one.
v2xlog_writer* WriterFor(V2X_LOGHANDLE& handle, int32_t level) {
    v2xlog_writer* const writer = g_writer.load(std::memory_order_acquire);
    if (writer == nullptr) {
        return nullptr;
    }
    handle = writer->Resolve(handle);
    return v2xlog_writer::Wanted(handle, level) ? writer : nullptr;
}

// One message is one line: control characters become blanks.
void Clean(char* text, size_t length) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; };
    std::replace_if(text, text + length, isControl, ' ');
}

constexpr int32_t kBytesPerLine = 16;

// "0010  de ad ...   |..|" for up to sixteen bytes.
std::string_view DumpLine(char (&text)[128], int64_t offset, const uint8_t* data, int32_t count) {
    constexpr char kDigits[] = "0123456789abcdef";
    char* out = text + std::snprintf(text, sizeof(text), "%04x  ", static_cast<unsigned>(offset));
    for (int32_t i = 0; i < kBytesPerLine; ++i) {
        *out++ = i < count ? kDigits[data[i] >> 4] : ' ';
        *out++ = i < count ? kDigits[data[i] & 15] : ' ';
        *out++ = ' ';
    }
    out = std::copy_n("  |", 3, out);
    out = std::transform(data, data + count, out,
                         [](uint8_t byte) { return byte >= ' ' && byte < 0x7f ? static_cast<char>(byte) : '.'; });
    *out++ = '|';
    return {text, static_cast<size_t>(out - text)};
}

} // namespace

int32_t v2xlog_Init(const char* path, const char* defaultTag, int32_t useFile, int32_t collapse, int32_t useStderr) {
    if (path == nullptr || defaultTag == nullptr) {
        return -2;
    }
    const std::lock_guard lock(g_initMutex);
    if (g_writer.load(std::memory_order_relaxed) != nullptr) {
        return -4;
    }
    try {
        auto* const writer =
            new v2xlog_writer(useFile != 0 ? path : nullptr, defaultTag, collapse != 0, useStderr != 0);
        const bool open = writer->Open();
        g_process = ::getpid();
        g_writer.store(writer, std::memory_order_release);
        std::atexit(CloseAtExit);
        return open ? 0 : -3;
    } catch (const std::exception&) { // no memory for a log
        return -5;
    }
}

void v2xlog_Print(V2X_LOGHANDLE handle, int32_t level, const char* text) {
    const KeepErrno keep;
    v2xlog_writer* const writer = text == nullptr ? nullptr : WriterFor(handle, level);
    if (writer == nullptr) {
        return;
    }
    char line[V2XLOG_TEXT_SIZE];
    const size_t length = strnlen(text, sizeof(line) - 1);
    std::memcpy(line, text, length);
    Clean(line, length);
    writer->Write({handle, level, {line, length}}, true);
}

void v2xlog_HexDump(V2X_LOGHANDLE handle, int32_t level, const uint8_t* data, int32_t len) {
    const KeepErrno keep;
    v2xlog_writer* const writer = data == nullptr || len <= 0 ? nullptr : WriterFor(handle, level);
    if (writer == nullptr) {
        return;
    }
    char line[128];
    for (int64_t offset = 0; offset < len; offset += kBytesPerLine) {
        const int32_t count = static_cast<int32_t>(std::min<int64_t>(kBytesPerLine, len - offset));
        writer->Write({handle, level, DumpLine(line, offset, data + offset, count)}, false);
    }
}

void v2xlog_Format(V2X_LOGHANDLE handle, int32_t level, uint32_t times, const char* file, const char* function,
                   int32_t line, const char* format, ...) {
    const KeepErrno keep;
    v2xlog_writer* const writer = format == nullptr ? nullptr : WriterFor(handle, level);
    if (writer == nullptr) {
        return;
    }
    char text[V2XLOG_TEXT_SIZE];
    const int head = std::snprintf(text, sizeof(text), "%s:%s:%d:", file == nullptr ? "" : file,
                                   function == nullptr ? "" : function, line);
    const size_t start = std::min(static_cast<size_t>(std::max(head, 0)), sizeof(text) - 1);
    va_list arguments;
    va_start(arguments, format);
    int body = std::vsnprintf(text + start, sizeof(text) - start, format, arguments);
    va_end(arguments);
    if (body < 0) { // arguments that the format cannot take: the bare format still tells where and what
        body = std::snprintf(text + start, sizeof(text) - start, "%s", format);
    }
    const size_t length = std::min(start + static_cast<size_t>(std::max(body, 0)), sizeof(text) - 1);
    Clean(text, length);
    writer->Write({handle, level, {text, length}}, true, times);
}
