#include "v2xapp_log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>

#include "v2xapp_private.h"

namespace {

constexpr size_t TEXT_SIZE = 256; // of a line, with its NUL

constinit std::atomic<const v2xcodec_log_t*> g_log{nullptr};

} // namespace

void v2xcodec_setLog(const v2xcodec_log_t* log) {
    g_log.store(log, std::memory_order_release);
}

const v2xcodec_log_t* v2xapp_FindLog(const char* tag, int32_t level) {
    const v2xcodec_log_t* log = g_log.load(std::memory_order_acquire);
    return log != nullptr && log->isEnabled(tag, level) ? log : nullptr;
}

void v2xapp_Write(const v2xcodec_log_t& log, const char* tag, int32_t level, const char* file, int32_t line,
                  const char* function, const char* format, ...) {
    char text[TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    log.write(tag, level, file, line, function, text);
}
