// The log library against real files. The library starts once per process, so each case runs in a child process, whose
// standard error is a file in the case's folder unless the case redirects it.
#include "v2x/v2xlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <functional>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "temp_folder.h"

// The leak sanitizer asks this first. Its check at exit can hang while threads run, and reports what they hold in
// registers.
static std::atomic<bool> g_hasRunningThreads{false};
extern "C" int __lsan_is_turned_off() {
    return g_hasRunningThreads ? 1 : 0;
}

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr size_t TIME_LENGTH = 24; // "2026-01-31 12:00:00.000 "
constexpr int64_t TEN_SECONDS = 10'000'000'000;

// The lines of a file, each from character `from` on.
std::vector<std::string> Lines(const fs::path& path, size_t from = 0) {
    std::vector<std::string> lines;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line.substr(std::min(from, line.size())));
    }
    return lines;
}

class V2xLog : public testing::Test {
protected:
    // Runs the body in a child process, which must exit without a failed expectation or a sanitizer's report.
    void InChild(const std::function<void()>& body) const {
        const auto child = [&] {
            ::alarm(100); // ends a call that blocks for ever
            ::dup2(::open(errors.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), STDERR_FILENO);
            body();
            std::exit(HasFailure() ? 1 : 0);
        };
        EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
    }

    void Start(int32_t limit) {
        ASSERT_EQ(v2xlog_AddTag("MAIN", &tag), 0);
        ASSERT_EQ(v2xlog_SetTagLevel(tag, V2XLOG_TRACE), 0);
        ASSERT_EQ(v2xlog_Init(path.c_str(), "MAIN", 1, limit, 0), 0);
    }

    void Format(v2xlog_site& site, int32_t level, uint32_t times, const std::string& text) const {
        v2xlog_Format(tag, level, times, site, "f", "%s", text.c_str());
    }

    // Prints a line until the file holds it.
    bool LineArrives(const std::string& line, const fs::path& file) const {
        return eventually([&] {
            v2xlog_Print(tag, V2XLOG_INFO, line.c_str());
            return readFile(file).find(line) != std::string::npos;
        });
    }

    TempFolder temp;
    const fs::path folder = temp.path();
    const fs::path path = folder / "a" / "b" / "unit.log";
    const fs::path errors = folder / "stderr";
    V2X_LOGHANDLE tag = nullptr;
};

TEST_F(V2xLog, RegistryKeepsOrderAndRejectsInvalidArguments) {
    InChild([] {
        V2X_LOGHANDLE first = nullptr;
        V2X_LOGHANDLE other = nullptr;
        uint8_t name[V2XLOG_NAME_SIZE];
        int16_t level = -1;
        EXPECT_EQ(v2xlog_AddTag("SEVENCH", &first), 0);
        EXPECT_EQ(v2xlog_AddTag("A", &first), 0);
        EXPECT_EQ(v2xlog_SetTagLevel(first, 7), 0);
        const int32_t results[] = {
            v2xlog_GetTagHandle("SEVENCHXY", &other), // only eight bytes are read, none of them NUL
            v2xlog_SetTagLevel(first, 8),
            v2xlog_GetTagLevelByIndex(-1, name, &level),
            v2xlog_GetTagLevelByIndex(2, name, &level),
        };
        EXPECT_THAT(results, testing::Each(-3));
        EXPECT_EQ(v2xlog_AddTag("EIGHTCHR", &other), -2);
        for (int i = 2; i < V2XLOG_MAX_TAGS; ++i) {
            EXPECT_EQ(v2xlog_AddTag(("T" + std::to_string(i)).c_str(), &other), 0);
        }
        EXPECT_EQ(v2xlog_AddTag("FULL", &other), -3);
        EXPECT_EQ(v2xlog_AddTag("A", &other), 0);
        EXPECT_EQ(other, first);
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(1, name, &level), 0);
        EXPECT_EQ(std::string(name, name + V2XLOG_NAME_SIZE), std::string("A\0\0\0\0\0\0", V2XLOG_NAME_SIZE));
        EXPECT_EQ(level, 7) << "registering a tag again keeps its level";
    });
}

TEST_F(V2xLog, LineHasTimeLevelTagAndOneLineOfText) {
    InChild([this] {
        v2xlog_Print(nullptr, V2XLOG_FATAL, "before the start");
        Start(0);
        static v2xlog_tag_t module{"QUOR"};
        V2XLOG(module, V2XLOG_FATAL, "not registered");
        V2X_LOGHANDLE handle = nullptr;
        v2xlog_AddTag("QUOR", &handle);
        V2XLOG(module, V2XLOG_DEBUG, "above the level");
        v2xlog_Print(handle, V2XLOG_INFO, "a\n\tb\x01\x1f\x7f\xe8\xb7\xaf");
        v2xlog_Print(nullptr, V2XLOG_TRACE, "default tag");
        v2xlog_Print(tag, V2XLOG_VERBOSE, std::string(5000, 'x').c_str());
        V2XLOG_TIMES(module, V2XLOG_ERROR, 2, "from %s", "here");
        const uint8_t data[17] = {0xfe, 0x00, 'a', ':', '~', 0x7f, ' ', '|', 0xff};
        v2xlog_HexDump(handle, V2XLOG_INFO, data, sizeof(data));
        EXPECT_THAT(Lines(path, TIME_LENGTH),
                    ElementsAre("I QUOR a  b   \xe8\xb7\xaf", "T MAIN default tag", "V MAIN " + std::string(4095, 'x'),
                                EndsWith(":from here"), EndsWith(":from here"),
                                "I QUOR 0000  fe 00 61 3a 7e 7f 20 7c ff 00 00 00 00 00 00 00   |..a:~. |........|",
                                "I QUOR 0010  00                                                |.|"));
    });
}

TEST_F(V2xLog, SuppressesTextEqualToTheLastOneOfItsPlace) {
    InChild([this] {
        Start(1);
        static v2xlog_tag_t module{"MAIN"};
        v2xlog_site site{"a.cpp", 1};
        v2xlog_site other{"b.cpp", 2};
        Format(site, V2XLOG_WARN, 1, "x");
        Format(site, V2XLOG_WARN, 6, "x");
        Format(other, V2XLOG_WARN, 7, "x");
        Format(site, V2XLOG_WARN, 1, "y");
        Format(other, V2XLOG_WARN, 1, "y");
        site.textTime -= TEN_SECONDS;
        Format(site, V2XLOG_WARN, 1, "y");
        for (int i = 0; i < 4; ++i) {
            V2XLOG(module, V2XLOG_INFO, "%s", i < 3 ? "same" : "new");
        }
        EXPECT_THAT(Lines(path, TIME_LENGTH),
                    ElementsAre("W MAIN a.cpp:f:1:x", "W MAIN b.cpp:f:2:x", "W MAIN a.cpp:f:1:y [6 more]",
                                "W MAIN b.cpp:f:2:y [6 more]", "W MAIN a.cpp:f:1:y", EndsWith(":same"),
                                EndsWith(":new [2 more]")));
    });
}

TEST_F(V2xLog, LimitsPlaceToThreeHundredLinesInTenSecondsUpToDebug) {
    InChild([this] {
        Start(1);
        for (const int32_t level : {V2XLOG_DEBUG, V2XLOG_VERBOSE, V2XLOG_TRACE}) {
            v2xlog_site site{"a.cpp", 1};
            for (int i = 0; i < 400; ++i) {
                Format(site, level, 1, level == V2XLOG_DEBUG ? std::to_string(i) : "equal");
            }
            site.windowStart -= TEN_SECONDS;
            Format(site, level, 1, "later");
        }
    });
    const std::vector<std::string> lines = Lines(path);
    ASSERT_EQ(lines.size(), 301U + 401U + 401U);
    EXPECT_THAT(lines[300], EndsWith(":later [100 more]"));
    EXPECT_THAT(lines.back(), EndsWith(":later"));
}

TEST_F(V2xLog, RotationKeepsFiveOldFilesAndEveryLineBetween) {
    InChild([this] {
        Start(0);
        constexpr int LINES = 18500; // seven files of 10 MiB and part of another
        for (int i = 0; i < LINES; ++i) {
            v2xlog_Print(tag, V2XLOG_INFO, (std::to_string(i) + ' ' + std::string(4050, 'r')).c_str());
        }
        EXPECT_FALSE(fs::exists(path.parent_path() / "unit.6.log"));
        int expected = std::stoi(Lines(path.parent_path() / "unit.5.log", 31).at(0));
        EXPECT_GT(expected, 0);
        for (const char* name : {"unit.5.log", "unit.4.log", "unit.3.log", "unit.2.log", "unit.1.log", "unit.log"}) {
            EXPECT_LE(fs::file_size(path.parent_path() / name), 10U * 1024 * 1024) << name;
            for (const std::string& line : Lines(path.parent_path() / name, 31)) {
                ASSERT_EQ(std::stoi(line), expected++) << name;
            }
        }
        EXPECT_EQ(expected, LINES);
    });
}

TEST_F(V2xLog, RecoversFromFullAndRemovedFile) {
    InChild([this] {
        std::signal(SIGXFSZ, SIG_IGN);
        Start(0);
        const std::string first(4000, 'f'); // more than standard error will hold
        v2xlog_Print(tag, V2XLOG_INFO, first.c_str());
        const rlimit full{fs::file_size(path) + 10, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &full);
        EXPECT_TRUE(LineArrives("meanwhile", errors));
        const rlimit unlimited{RLIM_INFINITY, RLIM_INFINITY};
        ::setrlimit(RLIMIT_FSIZE, &unlimited);
        EXPECT_TRUE(LineArrives("after", path));
        EXPECT_THAT(readFile(path), HasSubstr(first)) << "the file was truncated";
        EXPECT_THAT(readFile(path),
                    testing::ContainsRegex("W MAIN v2xlog: this file could not be written for [0-9]+ s: "
                                           "[1-9][0-9]* lines were written to standard error, 0 were lost\n"));
        EXPECT_THAT(Lines(errors).at(0), MatchesRegex("v2xlog: cannot write /.*: .*File too large; logging to .*"));
        fs::remove_all(folder / "a");
        EXPECT_TRUE(LineArrives("in a new folder", path));
    });
}

TEST_F(V2xLog, StartWithoutRegularFileWritesToStderr) {
    InChild([this] {
        ::mkfifo((folder / "pipe").c_str(), 0644);
        EXPECT_EQ(v2xlog_Init((folder / "pipe").c_str(), "MAIN", 1, 1, 0), -3);
        v2xlog_Print(nullptr, V2XLOG_INFO, "on standard error");
    });
    EXPECT_THAT(Lines(errors),
                ElementsAre(HasSubstr("/pipe: not a regular file;"), HasSubstr(" I MAIN on standard error")));
}

TEST_F(V2xLog, DoesNotWaitForAReaderOfStderr) {
    InChild([&] {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        ::dup2(ends[1], STDERR_FILENO);
        EXPECT_EQ(v2xlog_Init(path.c_str(), "MAIN", 0, 0, 1), 0);
        for (int i = 0; i < 1000; ++i) {
            v2xlog_Print(nullptr, V2XLOG_INFO, std::string(3000, 't').c_str());
        }
        EXPECT_FALSE(fs::exists(path)) << "useFile is 0";
    });
}

TEST_F(V2xLog, ThreadsLogWhileLevelsChangeAndTheProcessExits) {
    InChild([this] {
        g_hasRunningThreads = true;
        Start(1);
        static std::atomic<int> running{0};
        for (int thread = 0; thread < 4; ++thread) {
            std::thread([] {
                for (int i = 0;; ++i) {
                    static v2xlog_tag_t module{"MAIN"};
                    V2XLOG(module, V2XLOG_INFO, "shared place %d", i / 2);
                    v2xlog_SetAllTagLevel(3 + i % 3);
                    running += i == 200 ? 1 : 0;
                }
            }).detach();
        }
        EXPECT_TRUE(eventually([] { return running == 4; }));
    });
    const std::vector<std::string> lines = Lines(path);
    EXPECT_GT(lines.size(), 200U);
    EXPECT_THAT(lines, testing::Each(MatchesRegex("[0-9]{4}(-[0-9]{2}){2} [0-9]{2}(:[0-9]{2}){2}[.][0-9]{3} I MAIN "
                                                  "test_v2xlog.cpp:.*:shared place [0-9]+( \\[[0-9]+ more\\])?")));
}

} // namespace
