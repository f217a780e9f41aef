// Log library of the unit: one log file per process, and tags whose levels can be changed at run time.
//
// Any thread may call any function at any time. Before v2xlog_Init nothing is written. No function waits for a full or
// missing disk, and none ends the process for it: while the file cannot be written, lines go to standard error, and a
// line that would block there is dropped. One line on standard error reports the start of such an outage, one line in
// the file reports its end. The process is expected to ignore SIGPIPE (standard error without a reader) and SIGXFSZ (a
// file at the size limit of the process).
#pragma once

#include <atomic>
#include <cstdint>

// Levels, most important first. A tag at level n writes lines of the levels 1 to n; at 0 it writes nothing.
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

// Bytes of one formatted message including its NUL; a longer message is truncated.
inline constexpr int32_t V2XLOG_TEXT_SIZE = 4096;
// Bytes of a tag name as it travels on the wire, NUL-padded; a name has at most 7 characters.
inline constexpr int32_t V2XLOG_NAME_SIZE = 8;
// Maximum number of tags in one process.
inline constexpr int32_t V2XLOG_MAX_TAGS = 64;

// One registered tag. Owned by the library, never freed, at a fixed address.
struct v2xlog_tagSlot {
    char name[V2XLOG_NAME_SIZE];
    std::atomic<int32_t> level;
};
using V2X_LOGHANDLE = v2xlog_tagSlot*;

// Opens the log file `path` and creates its missing folders. Lines printed with a null handle carry `defaultTag`, which
// is not registered by this call.
// useFile: 1 = write to the file (rotated at 10 MiB, five old files kept as NAME.1.EXT to NAME.5.EXT), 0 = no file.
// limit: 1 = limit each place in the code (see v2xlog_site), 0 = write every line. useStderr: 1 = write every line to
// standard error as well. Lines after exit() has begun are dropped. Returns 0; -2 for a null path or tag; -3 when the
// file cannot be opened or is not a regular file (a folder, a device, a symbolic link): the library then writes to
// standard error and tries the file again every 2 s; -4 for a second call, which changes nothing.
int32_t v2xlog_Init(const char* path, const char* defaultTag, int32_t useFile, int32_t limit, int32_t useStderr);

// Registers a tag (1 to 7 characters) at level 4 and stores its handle. For a registered name it stores the existing
// handle and keeps the level. Returns 0; -2 for a null argument or a name of invalid length; -3 when 64 tags are
// registered.
int32_t v2xlog_AddTag(const char* name, V2X_LOGHANDLE* handle);

// Finds a registered tag; `name` is read up to its NUL and at most 8 bytes. Returns 0, -2 for a null argument, -3 for
// an unknown name (the handle keeps its value).
int32_t v2xlog_GetTagHandle(const char* name, V2X_LOGHANDLE* handle);

// Sets a level, 0 to 7. Returns 0, -2 for a null handle, -3 for a level out of range (nothing changes).
int32_t v2xlog_SetTagLevel(V2X_LOGHANDLE handle, int32_t level);
int32_t v2xlog_SetAllTagLevel(int32_t level);

// Number of registered tags, 0 to 64. Their indexes follow the order of registration.
int32_t v2xlog_GetTagNum(void);

// Copies name (8 bytes, NUL-padded) and level of the tag at `index`. Returns 0, -2 for a null argument, -3 for an index
// out of range.
int32_t v2xlog_GetTagLevelByIndex(int32_t index, uint8_t* name, int16_t* level);

// Writes one line: local time, level letter (F E W I D V T), tag, text. Control characters in the text become blanks.
// A null handle means the default tag with its level (4 while it is not registered). Not limited.
void v2xlog_Print(V2X_LOGHANDLE handle, int32_t level, const char* text);

// Writes `len` bytes, sixteen a line: offset, hex, printable characters. Null data or len <= 0 writes nothing. Not
// limited.
void v2xlog_HexDump(V2X_LOGHANDLE handle, int32_t level, const uint8_t* data, int32_t len);

// One place in the code that logs, with static storage. The library limits its lines of the levels 1 to 5: it
// suppresses a text equal to the last one written less than 10 s ago, and every line after 300 in 10 s. The next line
// that the place writes ends in " [n more]", the number of suppressed lines.
struct v2xlog_site {
    const char* file; // name without folders
    int32_t line;
    // State of the limit, owned by the library and guarded by its lock.
    uint64_t textHash = 0;
    int64_t textTime = 0;    // of the last text written; monotonic nanoseconds
    int64_t windowStart = 0; // monotonic nanoseconds
    uint32_t written = 0;    // in the window
    uint64_t suppressed = 0; // since the last line written
};

// Formats "file:function:line:" and the message into one text and prints it `times` times. Use the macros below, which
// test the level first.
__attribute__((format(printf, 6, 7))) void v2xlog_Format(V2X_LOGHANDLE handle, int32_t level, uint32_t times,
                                                         v2xlog_site& site, const char* function, const char* format,
                                                         ...);

// A module's tag: its name, and its handle once the tag is registered. Keep it in static storage. Lines of an
// unregistered tag are not written.
struct v2xlog_tag_t {
    const char* name;
    std::atomic<V2X_LOGHANDLE> handle{nullptr};
};

// The handle, or null while the tag is not registered.
inline V2X_LOGHANDLE v2xlog_Handle(v2xlog_tag_t& tag) {
    V2X_LOGHANDLE handle = tag.handle.load(std::memory_order_acquire);
    if (handle == nullptr && v2xlog_GetTagHandle(tag.name, &handle) == 0) {
        tag.handle.store(handle, std::memory_order_release);
    }
    return handle;
}

inline bool v2xlog_Enabled(v2xlog_tag_t& tag, int32_t level) {
    const V2X_LOGHANDLE handle = v2xlog_Handle(tag);
    return handle != nullptr && level <= handle->level.load(std::memory_order_relaxed);
}

// V2XLOG(v2xlog_tag_t, level, printf format, ...): tests the level before it evaluates the arguments.
#define V2XLOG(tag, level, ...) V2XLOG_TIMES(tag, level, 1, __VA_ARGS__)

// Equals V2XLOG called `times` times in a row, at the cost of one call; 0 logs nothing.
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

// Place it after `int32_t ret = 0;` at the start of a function that ends in `return ret;`.
#define V2XLOG_TRACE_SCOPE(tag, ret)                                                                                   \
    static constinit v2xlog_site v2xlogTraceSite{__FILE_NAME__, __LINE__};                                             \
    const v2xlog_Trace v2xlogTrace(tag, v2xlogTraceSite, __func__, ret)
