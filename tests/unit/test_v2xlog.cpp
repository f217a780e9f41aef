// The log library against real files. It starts once per process, so each case runs in a child of its own, whose
// standard error is a file in the case's folder unless the case says otherwise.
#include "v2x/v2xlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <linux/fs.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "temp_folder.h"

// Looking for leaks at exit while threads run on can hang, and takes what they hold in registers for lost: the leak
// sanitizer, where there is one, asks this first.
static std::atomic<bool> g_threadsRunOn{false};
extern "C" int __lsan_is_turned_off() {
    return g_threadsRunOn ? 1 : 0;
}

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::MatchesRegex;

std::vector<std::string> Lines(const fs::path& path) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

size_t Count(const std::string& text, const std::string& what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
        ++count;
    }
    return count;
}

// Sum of the numbers that stand between `before` and `after`.
int64_t Sum(const std::string& text, const std::string& before, const std::string& after) {
    int64_t sum = 0;
    for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1)) {
        size_t digits = 0;
        const std::string rest = text.substr(at + before.size(), after.size() + 20);
        const int64_t number = std::stoll("0" + rest, &digits);
        sum += rest.substr(digits - 1).starts_with(after) ? number : 0;
    }
    return sum;
}

void UnreadPipeAsStderr() {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ::dup2(ends[1], STDERR_FILENO);
}

void UnreadTerminalAsStderr() {
    const int terminal = ::posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(::grantpt(terminal) + ::unlockpt(terminal), 0);
    const int user = ::open(::ptsname(terminal), O_RDWR | O_NOCTTY);
    ASSERT_GE(user, 0);
    ::dup2(user, STDERR_FILENO);
}

class V2xLog : public testing::Test {
protected:
    // Runs the body in a child and expects it to end by exit without a failed expectation (or a sanitizer's report).
    static void InChild(const std::function<void()>& body) {
        std::fflush(nullptr);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::alarm(100); // a call that waits for ever ends here
            body();
            std::exit(HasFailure() ? 1 : 0);
        }
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "child's status " << status;
    }

    void StderrToFile() const {
        const int file = ::open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        ASSERT_EQ(::dup2(file, STDERR_FILENO), STDERR_FILENO);
        ::close(file);
    }

    void Start(int32_t collapse) {
        StderrToFile();
        ASSERT_EQ(v2xlog_AddTag("MAIN", &tag), 0);
        ASSERT_EQ(v2xlog_Init(path.c_str(), "MAIN", 1, collapse, 0), 0);
    }

    // Prints a line again and again until it shows in the log.
    bool LineArrives(const std::string& line) const {
        return eventually([&] {
            v2xlog_Print(tag, V2XLOG_INFO, line.c_str());
            return fs::is_regular_file(path) && Count(readFile(path), line) > 0;
        });
    }

    TempFolder temp;
    const fs::path folder = temp.path();
    const fs::path path = folder / "a" / "b" / "unit.log";
    const fs::path errors = folder / "stderr";
    V2X_LOGHANDLE tag = nullptr;
};

TEST_F(V2xLog, RegistryKeepsOrderAndRefusesBadArguments) {
    InChild([] {
        V2X_LOGHANDLE first = nullptr;
        V2X_LOGHANDLE other = nullptr;
        const struct {
            const char* name;
            int32_t code;
        } names[] = {{nullptr, -2}, {"", -2}, {"EIGHTCHR", -2}, {"SEVENCH", 0}, {"A", 0}};
        for (const auto& row : names) {
            EXPECT_EQ(v2xlog_AddTag(row.name, &first), row.code) << (row.name == nullptr ? "null" : row.name);
        }
        EXPECT_EQ(v2xlog_AddTag("B", nullptr), -2);
        EXPECT_EQ(v2xlog_SetTagLevel(first, 7), 0);
        EXPECT_EQ(v2xlog_AddTag("A", &other), 0);
        EXPECT_EQ(other, first);
        EXPECT_EQ(first->level.load(), 7) << "a tag that is there keeps its level";

        const char wire[] = {'S', 'E', 'V', 'E', 'N', 'C', 'H', 'X', 'Y'};
        EXPECT_EQ(v2xlog_GetTagHandle(wire, &other), -3);
        EXPECT_EQ(v2xlog_GetTagHandle("a", &other), -3);
        EXPECT_EQ(other, first) << "the handle is left alone";
        for (const int32_t level : {-1, 8}) {
            EXPECT_EQ(v2xlog_SetTagLevel(first, level), -3);
            EXPECT_EQ(v2xlog_SetAllTagLevel(level), -3);
        }
        EXPECT_EQ(v2xlog_SetTagLevel(nullptr, 1), -2);

        for (int i = 2; i < V2XLOG_MAX_TAGS; ++i) {
            EXPECT_EQ(v2xlog_AddTag(("T" + std::to_string(i)).c_str(), &other), 0);
        }
        EXPECT_EQ(v2xlog_AddTag("FULL", &other), -3);
        EXPECT_EQ(v2xlog_AddTag("A", &other), 0);
        EXPECT_EQ(v2xlog_GetTagNum(), V2XLOG_MAX_TAGS);
        uint8_t name[V2XLOG_NAME_SIZE];
        int16_t level = -1;
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(1, name, &level), 0);
        EXPECT_EQ(std::memcmp(name, "A\0\0\0\0\0\0", sizeof(name)), 0);
        EXPECT_EQ(level, 7);
        EXPECT_EQ(v2xlog_SetAllTagLevel(0), 0);
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(63, name, &level), 0);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(name)), "T63");
        EXPECT_EQ(level, 0);
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(64, name, &level), -3);
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(-1, name, &level), -3);
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(0, nullptr, &level), -2);
    });
}

TEST_F(V2xLog, LineHasTimeLevelTagAndCleanText) {
    InChild([this] {
        v2xlog_Print(nullptr, V2XLOG_FATAL, "before the start");
        EXPECT_EQ(v2xlog_Init(nullptr, "MAIN", 1, 0, 0), -2);
        EXPECT_EQ(v2xlog_Init(path.c_str(), nullptr, 1, 0, 0), -2);
        Start(0);
        EXPECT_EQ(v2xlog_Init((folder / "other.log").c_str(), "MAIN", 1, 0, 0), -4);

        static v2xlog_tag_t module{"QUOR"};
        int evaluated = 0;
        V2XLOG(module, V2XLOG_FATAL, "%d", ++evaluated);
        V2X_LOGHANDLE handle = nullptr;
        v2xlog_AddTag("QUOR", &handle);
        V2XLOG(module, V2XLOG_DEBUG, "%d", ++evaluated);
        EXPECT_EQ(evaluated, 0) << "arguments of lines that nobody wants";

        const struct {
            V2X_LOGHANDLE tag;
            int32_t tagLevel;
            int32_t level;
            std::string text;
            std::string expected; // empty: no line
        } rows[] = {
            {handle, 4, 4, "plain", "I QUOR plain"},
            {handle, 4, 5, "above the level", ""},
            {handle, 7, 7, "trace", "T QUOR trace"},
            {handle, 0, 1, "silent tag", ""},
            {handle, 7, 0, "no level", ""},
            {handle, 7, 8, "no level either", ""},
            {nullptr, 7, 2, "default tag", "E MAIN default tag"},
            {handle, 1, 1, "a\n\tb\x01\x1f\x7f", "F QUOR a  b   "},
            {handle, 3, 3, "\xe8\xb7\xaf\xe5\x8f\xa3", "W QUOR \xe8\xb7\xaf\xe5\x8f\xa3"},
            {handle, 6, 6, std::string(5000, 'x'), "V QUOR " + std::string(4095, 'x')},
        };
        std::vector<std::string> expected;
        for (const auto& row : rows) {
            EXPECT_EQ(v2xlog_SetTagLevel(handle, row.tagLevel), 0);
            v2xlog_Print(row.tag, row.level, row.text.c_str());
            if (!row.expected.empty()) {
                expected.push_back(row.expected);
            }
        }
        errno = EBADMSG;
        v2xlog_Format(handle, 2, 1, "src/a.cpp", "run", 12, "%s %d", "value", -1);
        EXPECT_EQ(errno, EBADMSG);
        v2xlog_Format(handle, 2, 1, nullptr, nullptr, 1, "%ls", L"\xdfff"); // no such character: no conversion
        v2xlog_Format(handle, 2, 1, std::string(5000, 'f').c_str(), "run", 12, "cut");
        v2xlog_Print(handle, 2, nullptr);
        expected.insert(expected.end(),
                        {"E QUOR src/a.cpp:run:12:value -1", "E QUOR ::1:%ls", "E QUOR " + std::string(4095, 'f')});

        const std::vector<std::string> lines = Lines(path);
        ASSERT_EQ(lines.size(), expected.size());
        const auto stamp = MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} ");
        for (size_t i = 0; i < lines.size(); ++i) {
            EXPECT_THAT(lines[i].substr(0, 24), stamp);
            EXPECT_EQ(lines[i].substr(24), expected[i]);
        }
        EXPECT_FALSE(fs::exists(folder / "other.log"));
    });
}

TEST_F(V2xLog, HexDumpShowsSixteenBytesALine) {
    InChild([this] {
        Start(1);
        uint8_t data[18] = {0xfe, 0xfe, 0x10, 0x00, 0x0a, 'a', ':',  'b', ':',
                            'c',  ':',  '~',  0x7f, ' ',  '|', 0xff, 'Z', 0x1f};
        v2xlog_HexDump(tag, V2XLOG_ERROR, data, sizeof(data));
        v2xlog_HexDump(tag, V2XLOG_DEBUG, data, sizeof(data));
        v2xlog_HexDump(tag, V2XLOG_ERROR, data, 0);
        v2xlog_HexDump(tag, V2XLOG_ERROR, nullptr, 4);
        const std::vector<std::string> lines = Lines(path);
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_EQ(lines[0].substr(24),
                  "E MAIN 0000  fe fe 10 00 0a 61 3a 62 3a 63 3a 7e 7f 20 7c ff   |.....a:b:c:~. |.|");
        EXPECT_EQ(lines[1].substr(24), "E MAIN 0010  5a 1f                                             |Z.|");
        // All of a long dump is there, although its lines hold what looks like one place in the code.
        const std::vector<uint8_t> same(6400, ':');
        v2xlog_HexDump(tag, V2XLOG_ERROR, same.data(), static_cast<int32_t>(same.size()));
        EXPECT_EQ(Lines(path).size(), 402U);
    });
}

TEST_F(V2xLog, RepeatsBecomeOneCountWithoutAnotherLine) {
    InChild([this] {
        Start(1);
        for (const std::string line : {"flood", "and later"}) { // later the library's thread sleeps without a time
            for (int i = 0; i < 1000; ++i) {
                v2xlog_Print(tag, V2XLOG_INFO, line.c_str());
            }
            v2xlog_Print(tag, V2XLOG_WARN, line.c_str()); // another level is another line
            const auto written = [&] { return Count(readFile(path), "I MAIN " + line + "\n"); };
            const auto counted = [&] { return Sum(readFile(path), "I MAIN " + line + " [repeated ", " times in "); };
            EXPECT_TRUE(eventually([&] { return static_cast<int64_t>(written()) + counted() == 1000; }));
            EXPECT_LT(written(), 10U);
            EXPECT_EQ(Count(readFile(path), "W MAIN " + line + "\n"), 1U);
        }
    });
}

TEST_F(V2xLog, ALineForManyTimesIsAsManyLines) {
    const auto log = [this](int32_t collapse) {
        InChild([this, collapse] {
            Start(collapse);
            v2xlog_tag_t record{"MAIN"};
            V2XLOG_TIMES(record, V2XLOG_ERROR, 0, "never");
            V2XLOG_TIMES(record, V2XLOG_ERROR, 7, "dropped");
        });
        const std::string text = readFile(path);
        fs::remove(path);
        EXPECT_EQ(Count(text, "never"), 0U);
        return static_cast<int64_t>(Count(text, "dropped\n")) + 100 * Sum(text, "dropped [repeated ", " times in ");
    };
    EXPECT_EQ(log(0), 7);
    EXPECT_EQ(log(1), 1 + 100 * 6);
}

TEST_F(V2xLog, CountsComeAtEvictionAndAtExit) {
    InChild([this] {
        Start(1);
        for (int i = 0; i < 65 * 2; ++i) { // one more than there is room for
            v2xlog_Print(tag, V2XLOG_INFO, ("line " + std::to_string(i / 2)).c_str());
        }
        EXPECT_EQ(Sum(readFile(path), "line 0 [repeated ", " times in "), 1);
    });
    EXPECT_EQ(Sum(readFile(path), "line 64 [repeated ", " times in "), 1);
}

TEST_F(V2xLog, OnePlaceWritesThreeHundredErrors) {
    InChild([this] {
        Start(1);
        for (int i = 0; i < 400; ++i) {
            v2xlog_Format(tag, V2XLOG_WARN, 1, "src/a.cpp", "run", 12, "error %d", i);
            v2xlog_Format(tag, V2XLOG_INFO, 1, "src/a.cpp", "run", 12, "note %d", i);
            v2xlog_Format(tag, V2XLOG_WARN, 1, "src/a.cpp", "run", 100 + i, "elsewhere %d", i);
        }
    });
    const std::string text = readFile(path);
    const size_t written = Count(text, "12:error ");
    const int64_t counted = Sum(text, "W MAIN src/a.cpp:run:12: [", " more lines from here in ");
    EXPECT_GE(written, 300U);
    EXPECT_GT(counted, 0);
    EXPECT_EQ(static_cast<int64_t>(written) + counted, 400);
    EXPECT_EQ(Count(text, "12:note "), 400U);
    EXPECT_EQ(Count(text, ":elsewhere "), 400U);
}

TEST_F(V2xLog, RotationKeepsFiveOldFilesAndEveryLineBetween) {
    InChild([this] {
        Start(0);
        constexpr int kLines = 18500; // 7 files of 10 MiB and a rest
        const std::string rest(4050, 'r');
        for (int i = 0; i < kLines; ++i) {
            v2xlog_Print(tag, V2XLOG_INFO, (std::to_string(i) + ' ' + rest).c_str());
        }
        EXPECT_FALSE(fs::exists(path.parent_path() / "unit.6.log"));
        int expected = -1;
        for (const char* name : {"unit.5.log", "unit.4.log", "unit.3.log", "unit.2.log", "unit.1.log", "unit.log"}) {
            const fs::path file = path.parent_path() / name;
            ASSERT_TRUE(fs::exists(file)) << name;
            EXPECT_LE(fs::file_size(file), 10U * 1024 * 1024) << name;
            for (const std::string& line : Lines(file)) {
                const int number = std::stoi(line.substr(31));
                EXPECT_TRUE(expected == -1 || number == expected) << name << ": " << number << " for " << expected;
                expected = number + 1;
            }
        }
        EXPECT_EQ(expected, kLines);
    });
}

TEST_F(V2xLog, FileTakenAwayIsMadeAnew) {
    InChild([this] {
        Start(0);
        const std::pair<const char*, std::function<void()>> causes[] = {
            {"folders removed", [this] { fs::remove_all(folder / "a"); }},
            {"file moved", [this] { fs::rename(path, folder / "moved.log"); }},
            {"file replaced",
             [this] {
                 std::ofstream(folder / "new") << "no newline";
                 fs::rename(folder / "new", path);
             }},
        };
        for (const auto& [name, cause] : causes) {
            cause();
            EXPECT_TRUE(LineArrives(std::string("after ") + name)) << name;
        }
        EXPECT_THAT(readFile(path), testing::StartsWith("no newline\n2"));
        EXPECT_EQ(readFile(errors), "");
    });
}

void SetLimit(decltype(RLIMIT_NOFILE) resource, rlim_t soft) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(resource, &limit), 0);
    limit.rlim_cur = std::min(soft, limit.rlim_max);
    ASSERT_EQ(::setrlimit(resource, &limit), 0);
}

// Root is stopped by no mode, but by this flag.
bool SetImmutable(const fs::path& at, bool on) {
    const int fd = ::open(at.c_str(), O_RDONLY | O_CLOEXEC);
    int flags = 0;
    const bool known = fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    const bool done = known && ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    ::close(fd);
    return done;
}

TEST_F(V2xLog, OutageTellsOnceGoesToStderrAndComesBack) {
    const fs::path parent = path.parent_path();
    fs::create_directories(parent);
    const bool hasImmutable = SetImmutable(parent, true) && SetImmutable(parent, false);
    const struct {
        const char* reason;
        bool keepsFile;
        bool needsImmutable;
        std::function<void()> begin;
        std::function<void()> end;
    } rows[] = {
        {"File too large", true, false, [this] { SetLimit(RLIMIT_FSIZE, fs::file_size(path) + 10); },
         [] { SetLimit(RLIMIT_FSIZE, RLIM_INFINITY); }},
        // A file that could not be renamed would be wiped when it is full.
        {"the folder cannot be written, the file could not be rotated", true, true, [&] { SetImmutable(parent, true); },
         [&] { SetImmutable(parent, false); }},
        {"not a regular file", false, false,
         [this] {
             fs::remove(path);
             fs::create_directory(path);
         },
         [this] { fs::remove(path); }},
        {"Not a directory", false, false,
         [this] {
             fs::remove_all(folder / "a");
             std::ofstream(folder / "a") << "in the way";
         },
         [this] { fs::remove(folder / "a"); }},
        // Last, as the sanitizers need descriptors of their own for the first look at a class.
        {"Too many open files", false, false,
         [this] {
             fs::remove(path);
             SetLimit(RLIMIT_NOFILE, 3);
         },
         [] { SetLimit(RLIMIT_NOFILE, RLIM_INFINITY); }},
    };
    InChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        Start(0);
        v2xlog_Print(tag, V2XLOG_INFO, std::string(4000, 'f').c_str()); // more than standard error will hold
        for (const auto& row : rows) {
            if (row.needsImmutable && !hasImmutable) {
                continue; // no right to, or another file system
            }
            SCOPED_TRACE(row.reason);
            const std::string kept = row.keepsFile ? readFile(path) : "";
            fs::resize_file(errors, 0);
            row.begin();
            EXPECT_TRUE(eventually([] {
                v2xlog_Print(nullptr, V2XLOG_INFO, "meanwhile");
                struct stat found {};
                return ::fstat(STDERR_FILENO, &found) == 0 && found.st_size > 0;
            }));
            v2xlog_Print(tag, V2XLOG_INFO, "still");
            row.end();
            EXPECT_TRUE(LineArrives(std::string("after ") + row.reason));

            EXPECT_THAT(readFile(path), testing::StartsWith(kept));
            const std::string log = readFile(path).substr(kept.size());
            EXPECT_EQ(Count(log, "W MAIN v2xlog: this file could not be written for "), 1U);
            EXPECT_GE(Sum(log, " s: ", " lines went to standard error, 0 were lost\n"), 2);
            // Whole lines, but for the one that the limit cut.
            EXPECT_THAT(Lines(path), testing::Each(MatchesRegex("2[0-9-]{9}( [0-9:.]{12} [IW] MAIN .*)?")));
            const std::string text = readFile(errors);
            EXPECT_THAT(text, testing::StartsWith("v2xlog: cannot write " + path.string() + ": " + row.reason +
                                                  "; logging to standard error until it can be written\n"));
            EXPECT_EQ(Count(text, "v2xlog: cannot write"), 1U);
            EXPECT_EQ(Count(text, "I MAIN still\n"), 1U);
        }
    });
    SetImmutable(parent, false);
    if (!hasImmutable) {
        GTEST_SKIP() << "all but the folder that cannot be written was looked at";
    }
}

TEST_F(V2xLog, StartWithoutAFileTellsWhy) {
    const fs::path pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
    std::ofstream(folder / "file") << "x";
    const struct {
        fs::path path;
        const char* reason;
    } rows[] = {
        {pipe, "not a regular file"},
        {folder / "file" / "unit.log", "Not a directory"},
        {"", "No such file or directory"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.path);
        fs::remove(errors);
        InChild([&] {
            StderrToFile();
            EXPECT_EQ(v2xlog_Init(row.path.c_str(), "MAIN", 1, 1, 0), -3);
            v2xlog_Print(nullptr, V2XLOG_INFO, "all the same");
        });
        const std::vector<std::string> lines = Lines(errors);
        ASSERT_EQ(lines.size(), 2U);
        EXPECT_THAT(lines[0], HasSubstr("cannot write " + row.path.string() + ": " + row.reason + ";"));
        EXPECT_THAT(lines[1], HasSubstr(" I MAIN all the same"));
    }
}

TEST_F(V2xLog, StderrWithoutReaderHoldsNobodyUp) {
    for (const auto& redirect : {UnreadPipeAsStderr, UnreadTerminalAsStderr}) {
        InChild([&] {
            redirect();
            EXPECT_EQ(v2xlog_Init(path.c_str(), "MAIN", 0, 0, 1), 0);
            const std::string text(3000, 't');
            for (int i = 0; i < 1000; ++i) {
                v2xlog_Print(nullptr, V2XLOG_INFO, text.c_str());
            }
            EXPECT_FALSE(fs::exists(path)) << "no file was asked for";
        });
    }
}

TEST_F(V2xLog, ThreadsWriteWhileLevelsChangeAndTheProcessEnds) {
    InChild([this] {
        g_threadsRunOn = true;
        Start(1);
        std::atomic<int> running{0};
        for (int thread = 0; thread < 4; ++thread) {
            std::thread([this, thread, &running] {
                for (int i = 0;; ++i) {
                    V2X_LOGHANDLE own = nullptr;
                    v2xlog_AddTag(("T" + std::to_string(thread)).c_str(), &own);
                    v2xlog_Format(own, V2XLOG_INFO, 1, "a", "b", thread, "line %d of this thread", i / 2);
                    v2xlog_HexDump(tag, V2XLOG_DEBUG, reinterpret_cast<const uint8_t*>(&i), sizeof(i));
                    v2xlog_SetAllTagLevel(3 + i % 3);
                    running += i == 200 ? 1 : 0;
                }
            }).detach();
        }
        EXPECT_TRUE(eventually([&] { return running == 4; }));
    });
    const auto whole =
        MatchesRegex("[0-9 :.-]{23} (I T[0-3] a:b:[0-3]:line [0-9]+ of this thread"
                     "|I T[0-3] a:b:[0-3]:line [0-9]+ of this thread \\[repeated [0-9]+ times in [12] s\\]"
                     "|D MAIN 0000  [0-9a-f ]{50}[|].{4}[|].*)");
    const std::vector<std::string> lines = Lines(path);
    EXPECT_GT(lines.size(), 400U);
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_THAT(lines[i], whole) << "line " << i << " of " << lines.size();
    }
}

} // namespace
