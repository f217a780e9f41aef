// Log library of the unit: one log file per process, tags with levels of their own, changed at run time.
//
// Every call is safe from any thread at any time, also before v2xlog_Init: without a log nothing is written.
// No call waits for a disk that is full or gone, and none ends the process: while the file cannot be written, lines go
// to standard error (one line says so at the start and one in the file at the end), and are dropped when that would
// block. The process is expected to ignore SIGPIPE (a standard error whose reader is gone) and SIGXFSZ (a file at the
// limit of its size).
#pragma once

#include <atomic>
#include <cstdint>

// Levels, least to most. A tag at level n writes lines of the levels 1 to n; at 0 it writes nothing.
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

// Bytes of one formatted message including its NUL; what is longer is cut.
inline constexpr int32_t V2XLOG_TEXT_SIZE = 4096;
// Bytes of a tag name as it travels on the wire, NUL-padded; a name has at most one character less.
inline constexpr int32_t V2XLOG_NAME_SIZE = 8;
// Tags that one process can register.
inline constexpr int32_t V2XLOG_MAX_TAGS = 64;

// One registered tag. Owned by the library, never freed, at a fixed address.
struct v2xlog_tagSlot {
    char name[V2XLOG_NAME_SIZE];
    std::atomic<int32_t> level;
};
using V2X_LOGHANDLE = v2xlog_tagSlot*;

// Opens the log file `path`, creating its folder (and that one's parents) where missing. Tag `defaultTag` names lines
// printed with a null handle; it takes a place in the registry only when it is added like any other.
// useFile: 1 = write to the file (rotated at 10 MiB, five old files kept as NAME.1.EXT to NAME.5.EXT), 0 = no file.
// collapse: 1 = a line repeated within 2 s is written once and then counted, and from one place in the code at most 300
// errors or warnings are written in 10 s, the rest counted; 0 = every line is written. Counts come out when their time
// is over and at exit(), not at _exit() or a signal's end; lines after those of exit() are dropped. useStderr: 1 =
// every line goes to standard error as well. Returns 0; -2 for a null path or tag; -3 when the file cannot be opened
// (reported on standard error; the library goes on there and tries the file again every 2 s) or is none: a folder, a
// device, a symbolic link; -5 when there is no memory for a log, and then there is none. A second call changes nothing
// and returns -4.
int32_t v2xlog_Init(const char* path, const char* defaultTag, int32_t useFile, int32_t collapse, int32_t useStderr);

// Registers a tag (1 to 7 characters) at level 4 and stores its handle; a name that is registered already gives the
// handle it has, its level untouched. Returns 0; -2 for a null argument or a name of wrong length; -3 when 64 tags are
// registered.
int32_t v2xlog_AddTag(const char* name, V2X_LOGHANDLE* handle);

// Finds a registered tag; `name` is read up to its NUL and at most 8 bytes. Returns 0, -2 for a null argument, -3 for
// an unknown name (the handle is left alone).
int32_t v2xlog_GetTagHandle(const char* name, V2X_LOGHANDLE* handle);

// Sets a level, 0 to 7. Returns 0, -2 for a null handle, -3 for a level out of range (nothing changes).
int32_t v2xlog_SetTagLevel(V2X_LOGHANDLE handle, int32_t level);
int32_t v2xlog_SetAllTagLevel(int32_t level);

// Number of registered tags, 0 to 64; tags are counted in the order of their registration.
int32_t v2xlog_GetTagNum(void);

// Copies name (8 bytes, NUL-padded) and level of the tag at `index`. Returns 0, -2 for a null argument, -3 for an index
// out of range.
int32_t v2xlog_GetTagLevelByIndex(int32_t index, uint8_t* name, int16_t* level);

// Writes one line: local time, level letter (F E W I D V T), tag, text. Control characters in the text become blanks.
// A null handle writes under the default tag at that tag's level (4 while it is not registered).
void v2xlog_Print(V2X_LOGHANDLE handle, int32_t level, const char* text);

// Writes `len` bytes as lines of sixteen: offset, hex, printable characters. Null data or len <= 0 writes nothing.
void v2xlog_HexDump(V2X_LOGHANDLE handle, int32_t level, const uint8_t* data, int32_t len);

// Formats "file:function:line:" and the message into one text and prints it `times` times (which, repeats collapsed, is
// one line and a count). Use the macros below, which test the level first.
__attribute__((format(printf, 7, 8))) void v2xlog_Format(V2X_LOGHANDLE handle, int32_t level, uint32_t times,
                                                         const char* file, const char* function, int32_t line,
                                                         const char* format, ...);

// A module's own tag record: the tag's name, and its handle once the tag is registered. A module keeps one with static
// storage; until the tag is registered its lines are not written.
struct v2xlog_tag_t {
    const char* name;
    std::atomic<V2X_LOGHANDLE> handle{nullptr};
};

// The record's handle, or null while the tag is not registered.
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

// V2XLOG(tag record, level, printf format, ...): nothing but the level test happens when the line is not wanted.
#define V2XLOG(tag, level, ...) V2XLOG_TIMES(tag, level, 1, __VA_ARGS__)

// The same line as if logged `times` times in a row, at the cost of one; 0 logs nothing.
#define V2XLOG_TIMES(tag, level, times, ...)                                                                           \
    do {                                                                                                               \
        if ((times) > 0 && v2xlog_Enabled(tag, level)) {                                                               \
            v2xlog_Format(v2xlog_Handle(tag), level, times, __FILE__, __func__, __LINE__, __VA_ARGS__);                \
        }                                                                                                              \
    } while (false)

// Traces entry and exit of the enclosing scope at level 7 as "%s start" and "%s end ret=%d".
class v2xlog_Trace {
public:
    v2xlog_Trace(v2xlog_tag_t& tag, const char* file, const char* function, int32_t line, const int32_t& ret)
        : m_tag(tag), m_file(file), m_function(function), m_line(line), m_ret(ret) {
        if (v2xlog_Enabled(m_tag, V2XLOG_TRACE)) {
            v2xlog_Format(v2xlog_Handle(m_tag), V2XLOG_TRACE, 1, m_file, m_function, m_line, "%s start", m_function);
        }
    }
    ~v2xlog_Trace() {
        if (v2xlog_Enabled(m_tag, V2XLOG_TRACE)) {
            v2xlog_Format(v2xlog_Handle(m_tag), V2XLOG_TRACE, 1, m_file, m_function, m_line, "%s end ret=%d",
                          m_function, m_ret);
        }
    }
    v2xlog_Trace(const v2xlog_Trace&) = delete;
    v2xlog_Trace& operator=(const v2xlog_Trace&) = delete;

private:
    v2xlog_tag_t& m_tag;
    const char* m_file;
    const char* m_function;
    int32_t m_line;
    const int32_t& m_ret;
};

// Place after `int32_t ret = 0;` at the head of a function that ends in `return ret;`.
#define V2XLOG_TRACE_SCOPE(tag, ret) const v2xlog_Trace v2xlogTrace(tag, __FILE__, __func__, __LINE__, ret)
