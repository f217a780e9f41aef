// Log library: one log file per process, and tags whose levels can be changed at run time.
//
// Any thread may call any function at any time. Before v2xlog_Init the library writes nothing. A full or missing disk
// neither blocks a caller nor ends the process. While the file cannot be written, the library writes lines to standard
// error, and drops a line that would block. One line on standard error reports the start of such an outage. One line in
// the file reports the end. The process must ignore SIGPIPE, which is raised if standard error has no reader, and
// SIGXFSZ, which is raised if the file exceeds the size limit of the process.
#pragma once

#include <atomic>
#include <cstdint>

// Levels, most important first. A tag at level n writes the lines of levels 1 to n. A tag at level 0 writes nothing.
enum v2xlog_level : int32_t {
    V2XLOG_UNDO = 0,
    V2XLOG_FATAL = 1,
    V2XLOG_ERROR = 2,
    V2XLOG_WARN = 3,
    V2XLOG_INFO = 4,
    V2XLOG_DEBUG = 5,
    V2XLOG_VERBOSE = 6,
    V2XLOG_TRACE = 7,
};

// Maximum size of a formatted message in bytes, including its NUL. A longer message is truncated.
inline constexpr int32_t V2XLOG_TEXT_SIZE = 4096;
// Size of a NUL-padded tag name in bytes, in memory and in messages. A name has at most 7 characters.
inline constexpr int32_t V2XLOG_NAME_SIZE = 8;
// Maximum number of tags in one process.
inline constexpr int32_t V2XLOG_MAX_TAGS = 64;

// One registered tag. The library owns the tag and never frees or moves it.
struct v2xlog_tagSlot {
    char name[V2XLOG_NAME_SIZE];
    std::atomic<int32_t> level;
};
using V2X_LOGHANDLE = v2xlog_tagSlot*;

// Opens the log file `path` and creates its missing folders. `defaultTag` is the tag of lines that are printed with a
// null handle; this function does not register the tag.
// useFile: 1 writes lines to the file, 0 uses no file. The file is rotated at 10 MiB; the five old files are NAME.1.EXT
// to NAME.5.EXT. limit: 1 rate-limits each log statement (see v2xlog_site), 0 writes every line. useStderr: 1 writes
// every line to standard error, too.
// The library drops lines that are printed after exit() is called. Returns 0; -2 for a null path or tag; -3 if the file
// cannot be opened or is not a regular file (a folder, a device, a symbolic link); -4 for a second call, which changes
// nothing. After -3 the library writes to standard error and tries to open the file every 2 s.
int32_t v2xlog_Init(const char* path, const char* defaultTag, int32_t useFile, int32_t limit, int32_t useStderr);

// Registers a tag (1 to 7 characters) at level 4 and stores its handle. If the name is already registered, stores the
// existing handle and does not change the level. Returns 0; -2 for a null argument or a name of invalid length; -3 if
// 64 tags are already registered.
int32_t v2xlog_AddTag(const char* name, V2X_LOGHANDLE* handle);

// Finds a registered tag and stores its handle. Reads `name` up to its NUL, but at most 8 bytes. Returns 0; -2 for a
// null argument; -3 for an unknown name. On failure *handle is unchanged.
int32_t v2xlog_GetTagHandle(const char* name, V2X_LOGHANDLE* handle);

// Set the level, 0 to 7, of one tag or of all registered tags. Both functions return 0; -3 for a level out of range.
// v2xlog_SetTagLevel returns -2 for a null handle. On failure no level changes.
int32_t v2xlog_SetTagLevel(V2X_LOGHANDLE handle, int32_t level);
int32_t v2xlog_SetAllTagLevel(int32_t level);

// Returns the number of registered tags, 0 to 64. The tags are indexed from 0 in the order of registration.
int32_t v2xlog_GetTagNum(void);

// Copies the name (8 bytes, NUL-padded) and the level of the tag at `index`. Returns 0; -2 for a null argument; -3 for
// an index out of range.
int32_t v2xlog_GetTagLevelByIndex(int32_t index, uint8_t* name, int16_t* level);

// Writes one line: local time, level letter (F E W I D V T), tag, text. Replaces control characters in the text by
// blanks. A null handle means the default tag; an unregistered default tag has level 4. Lines are not rate-limited.
void v2xlog_Print(V2X_LOGHANDLE handle, int32_t level, const char* text);

// Writes `len` bytes, sixteen in each line: offset, hexadecimal digits, printable characters. Writes nothing if `data`
// is null or `len` <= 0. Lines are not rate-limited.
void v2xlog_HexDump(V2X_LOGHANDLE handle, int32_t level, const uint8_t* data, int32_t len);

// One log statement of the program, in static storage. The library rate-limits the lines of levels 1 to 5: it
// suppresses a line that repeats the statement's last text within 10 s, and every line after 300 lines in 10 s. The
// next line that the statement writes ends in " [n more]", where n is the number of suppressed lines.
struct v2xlog_site {
    const char* file; // name of the source file without folders
    int32_t line;
    // State of the rate limit. The library guards the state with a lock.
    uint64_t textHash = 0;   // hash of the last text written
    int64_t textTime = 0;    // time of the last text written, in monotonic nanoseconds
    int64_t windowStart = 0; // start of the current 10 s, in monotonic nanoseconds
    uint32_t written = 0;    // number of lines written since windowStart
    uint64_t suppressed = 0; // number of lines suppressed since the last line written
};

// Formats "file:function:line:" and the message into one text and writes the text `times` times. Use the macros below,
// which test the level first.
__attribute__((format(printf, 6, 7))) void v2xlog_Format(V2X_LOGHANDLE handle, int32_t level, uint32_t times,
                                                         v2xlog_site& site, const char* function, const char* format,
                                                         ...);

// A module's tag, in static storage. Lines of an unregistered tag are not written.
struct v2xlog_tag_t {
    const char* name;
    std::atomic<V2X_LOGHANDLE> handle{nullptr}; // null until v2xlog_Handle finds the tag registered
};

// Returns the tag's handle, or null if the tag is not registered.
inline V2X_LOGHANDLE v2xlog_Handle(v2xlog_tag_t& tag) {
    V2X_LOGHANDLE handle = tag.handle.load(std::memory_order_acquire);
    if (handle == nullptr && v2xlog_GetTagHandle(tag.name, &handle) == 0) {
        tag.handle.store(handle, std::memory_order_release);
    }
    return handle;
}

// Returns true if the tag is registered and its level includes `level`.
inline bool v2xlog_Enabled(v2xlog_tag_t& tag, int32_t level) {
    const V2X_LOGHANDLE handle = v2xlog_Handle(tag);
    return handle != nullptr && level <= handle->level.load(std::memory_order_relaxed);
}

// V2XLOG(v2xlog_tag_t, level, printf format, ...) logs a message. The macro evaluates the arguments only if the
// level is enabled.
#define V2XLOG(tag, level, ...) V2XLOG_TIMES(tag, level, 1, __VA_ARGS__)

// Has the effect of `times` successive calls of V2XLOG, but formats the message only once. 0 logs nothing.
#define V2XLOG_TIMES(tag, level, times, ...)                                                                           \
    do {                                                                                                               \
        if ((times) > 0 && v2xlog_Enabled(tag, level)) {                                                               \
            static constinit v2xlog_site v2xlogSite{__FILE_NAME__, __LINE__};                                          \
            v2xlog_Format(v2xlog_Handle(tag), level, times, v2xlogSite, __func__, __VA_ARGS__);                        \
        }                                                                                                              \
    } while (false)

// Traces entry and exit of the enclosing scope at level 7 as "%s start" and "%s end ret=%d".
class v2xlog_Trace {
public:
    v2xlog_Trace(v2xlog_tag_t& tag, v2xlog_site& site, const char* function, const int32_t& ret)
        : m_tag(tag), m_site(site), m_function(function), m_ret(ret) {
        if (v2xlog_Enabled(m_tag, V2XLOG_TRACE)) {
            v2xlog_Format(v2xlog_Handle(m_tag), V2XLOG_TRACE, 1, m_site, m_function, "%s start", m_function);
        }
    }
    ~v2xlog_Trace() {
        if (v2xlog_Enabled(m_tag, V2XLOG_TRACE)) {
            v2xlog_Format(v2xlog_Handle(m_tag), V2XLOG_TRACE, 1, m_site, m_function, "%s end ret=%d", m_function,
                          m_ret);
        }
    }
    v2xlog_Trace(const v2xlog_Trace&) = delete;
    v2xlog_Trace& operator=(const v2xlog_Trace&) = delete;

private:
    v2xlog_tag_t& m_tag;
    v2xlog_site& m_site;
    const char* m_function;
    const int32_t& m_ret;
};

// Use this macro after `int32_t ret = 0;` at the start of a function that ends in `return ret;`.
#define V2XLOG_TRACE_SCOPE(tag, ret)                                                                                   \
    static constinit v2xlog_site v2xlogTraceSite{__FILE_NAME__, __LINE__};                                             \
    const v2xlog_Trace v2xlogTrace(tag, v2xlogTraceSite, __func__, ret)
