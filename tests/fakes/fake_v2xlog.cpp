#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <list>
#include <mutex>

#include "fakes.h"
#include "v2x/v2xlog.h"

namespace {
// Tested code logs from several threads; a test reads the lines after they have ended.
std::mutex lock;
std::list<v2xlog_tagSlot> slots;
std::vector<V2X_LOGHANDLE> added; // in order of registration
int32_t logLevel = V2XLOG_TRACE;
} // namespace

namespace fakes {
std::set<std::string> unknownTags;
std::vector<LogLine> logLines;
std::vector<std::string> journal;

void setLogLevel(int32_t level) {
    logLevel = level;
    for (v2xlog_tagSlot& slot : slots) {
        slot.level = level;
    }
}

void resetLog() {
    setLogLevel(V2XLOG_TRACE);
    unknownTags.clear();
    logLines.clear();
    added.clear();
}

std::vector<LogLine> logged(const std::string& text) {
    std::vector<LogLine> lines;
    std::copy_if(logLines.begin(), logLines.end(), std::back_inserter(lines),
                 [&](const LogLine& line) { return line.text == text; });
    return lines;
}

std::vector<std::string> takeLog() {
    std::vector<std::string> lines;
    for (const LogLine& line : logLines) {
        if (line.level <= V2XLOG_WARN) {
            lines.push_back(line.tag + " " + std::to_string(line.level) + " " + line.text);
        }
    }
    logLines.clear();
    return lines;
}
} // namespace fakes

int32_t v2xlog_Init(const char* path, const char* defaultTag, int32_t useFile, int32_t limit, int32_t useStderr) {
    fakes::journal.push_back("log.Init " + std::string(path) + " " + defaultTag + " " + std::to_string(useFile) +
                             std::to_string(limit) + std::to_string(useStderr));
    return 0;
}

int32_t v2xlog_AddTag(const char* name, V2X_LOGHANDLE* handle) {
    fakes::journal.push_back(std::string("log.AddTag ") + name);
    const int32_t result = v2xlog_GetTagHandle(name, handle);
    added.push_back(*handle);
    return result;
}

int32_t v2xlog_GetTagNum(void) {
    return static_cast<int32_t>(added.size());
}

int32_t v2xlog_GetTagLevelByIndex(int32_t index, uint8_t* name, int16_t* level) {
    const v2xlog_tagSlot& slot = *added.at(static_cast<size_t>(index));
    memcpy(name, slot.name, sizeof slot.name);
    *level = static_cast<int16_t>(slot.level.load());
    return 0;
}

int32_t v2xlog_SetAllTagLevel(int32_t level) {
    fakes::journal.push_back("log.SetAllTagLevel " + std::to_string(level));
    if (level < V2XLOG_UNDO || level > V2XLOG_TRACE) {
        return -3;
    }
    fakes::setLogLevel(level);
    return 0;
}

int32_t v2xlog_GetTagHandle(const char* name, V2X_LOGHANDLE* handle) {
    if (fakes::unknownTags.contains(std::string(name, strnlen(name, V2XLOG_NAME_SIZE)))) {
        return -3;
    }
    const std::lock_guard guard(lock);
    for (v2xlog_tagSlot& slot : slots) {
        if (strncmp(slot.name, name, sizeof slot.name) == 0) {
            *handle = &slot;
            return 0;
        }
    }
    v2xlog_tagSlot& slot = slots.emplace_back();
    memcpy(slot.name, name, strnlen(name, sizeof slot.name));
    slot.level = logLevel;
    *handle = &slot;
    return 0;
}

int32_t v2xlog_SetTagLevel(V2X_LOGHANDLE handle, int32_t level) {
    const std::string name(handle->name, strnlen(handle->name, sizeof handle->name));
    fakes::journal.push_back("log.SetTagLevel " + name + " " + std::to_string(level));
    if (level < V2XLOG_UNDO || level > V2XLOG_TRACE) {
        return -3;
    }
    handle->level = level;
    return 0;
}

// Records every line: the limit per place belongs to the real library.
void v2xlog_Format(V2X_LOGHANDLE handle, int32_t level, uint32_t times, v2xlog_site& site, const char* function,
                   const char* format, ...) {
    char text[V2XLOG_TEXT_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    const std::lock_guard guard(lock);
    fakes::logLines.insert(fakes::logLines.end(), times, {handle->name, level, text, &site, function});
}

void v2xlog_HexDump(V2X_LOGHANDLE handle, int32_t level, const uint8_t* data, int32_t len) {
    const Bytes copy(data, data + len); // a sanitizer detects a read outside the data
    const std::lock_guard guard(lock);
    fakes::logLines.push_back({handle->name, level, "hexdump of " + std::to_string(copy.size())});
}
