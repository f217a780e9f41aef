// The log library against real files. The library starts once per process, so each case runs in a child process, whose
// standard error is a file in the case's folder unless the case redirects it.
#include "v2x/v2xlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
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
            return fs::is_regular_file(file) && readFile(file).find(line) != std::string::npos;
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
        const std::pair<int32_t, int32_t> rows[] = {
            // result, expected
            {v2xlog_Init(nullptr, "MAIN", 1, 0, 0), -2},
            {v2xlog_AddTag(nullptr, &other), -2},
            {v2xlog_AddTag("EIGHTCHR", &other), -2},
            {v2xlog_AddTag("B", nullptr), -2},
            {v2xlog_GetTagHandle(nullptr, &other), -2},
            {v2xlog_GetTagHandle("A", nullptr), -2},
            {v2xlog_GetTagHandle("SEVENCHXY", &other), -3}, // only eight bytes are read, none of them NUL
            {v2xlog_SetTagLevel(nullptr, 1), -2},
            {v2xlog_SetTagLevel(first, 8), -3},
            {v2xlog_SetAllTagLevel(-1), -3},
            {v2xlog_GetTagLevelByIndex(0, nullptr, &level), -2},
            {v2xlog_GetTagLevelByIndex(0, name, nullptr), -2},
            {v2xlog_GetTagLevelByIndex(-1, name, &level), -3},
            {v2xlog_GetTagLevelByIndex(2, name, &level), -3},
        };
        for (const auto& row : rows) {
            EXPECT_EQ(row.first, row.second) << "row " << &row - rows;
        }
        EXPECT_EQ(other, nullptr);
        for (int i = 2; i < V2XLOG_MAX_TAGS; ++i) {
            EXPECT_EQ(v2xlog_AddTag(("T" + std::to_string(i)).c_str(), &other), 0);
        }
        EXPECT_EQ(v2xlog_AddTag("FULL", &other), -3);
        EXPECT_EQ(v2xlog_AddTag("A", &other), 0);
        EXPECT_EQ(other, first);
        EXPECT_EQ(v2xlog_GetTagNum(), V2XLOG_MAX_TAGS);
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(1, name, &level), 0);
        EXPECT_EQ(std::string(name, name + V2XLOG_NAME_SIZE), std::string("A\0\0\0\0\0\0", V2XLOG_NAME_SIZE));
        EXPECT_EQ(level, 7) << "registering a tag again keeps its level";
        EXPECT_EQ(v2xlog_SetAllTagLevel(0), 0);
        EXPECT_EQ(v2xlog_GetTagLevelByIndex(63, name, &level), 0);
        EXPECT_EQ(level, 0);
    });
}

TEST_F(V2xLog, LineHasTimeLevelTagAndOneLineOfText) {
    InChild([this] {
        v2xlog_Print(nullptr, V2XLOG_FATAL, "before the start");
        Start(0);
        EXPECT_EQ(v2xlog_Init((folder / "other.log").c_str(), "MAIN", 1, 0, 0), -4);
        static v2xlog_tag_t module{"QUOR"};
        int evaluated = 0;
        V2XLOG(module, V2XLOG_FATAL, "%d", ++evaluated); // not registered
        V2X_LOGHANDLE handle = nullptr;
        v2xlog_AddTag("QUOR", &handle);
        V2XLOG(module, V2XLOG_DEBUG, "%d", ++evaluated); // above the level
        EXPECT_EQ(evaluated, 0);
        v2xlog_Print(handle, V2XLOG_DEBUG, "above the level");
        v2xlog_Print(handle, V2XLOG_INFO, "a\n\tb\x01\x1f\x7f\xe8\xb7\xaf");
        v2xlog_Print(nullptr, V2XLOG_TRACE, "default tag");
        v2xlog_Print(tag, 0, "no level");
        v2xlog_Print(tag, 8, "no level");
        v2xlog_Print(tag, V2XLOG_VERBOSE, std::string(5000, 'x').c_str());
        v2xlog_Print(tag, V2XLOG_WARN, nullptr);
        v2xlog_site site{"a.cpp", 12};
        v2xlog_site longSite{"a.cpp", 1};
        errno = EBADMSG;
        v2xlog_Format(handle, 1, 1, site, "run", "%s %d", "value", -1);
        EXPECT_EQ(errno, EBADMSG);
        v2xlog_Format(handle, 2, 1, site, "run", "%ls", L"\xdfff"); // no such character: the conversion fails
        v2xlog_Format(handle, 3, 1, longSite, std::string(5000, 'f').c_str(), "truncated");
        V2XLOG_TIMES(module, V2XLOG_ERROR, 2, "from %s", "here");
        V2XLOG_TIMES(module, V2XLOG_ERROR, 0, "never");
        const uint8_t data[18] = {0xfe, 0xfe, 0x10, 0x00, 0x0a, 'a', ':',  'b', ':',
                                  'c',  ':',  '~',  0x7f, ' ',  '|', 0xff, 'Z', 0x1f};
        v2xlog_HexDump(handle, V2XLOG_INFO, data, sizeof(data));
        v2xlog_HexDump(handle, V2XLOG_DEBUG, data, sizeof(data));
        v2xlog_HexDump(handle, V2XLOG_INFO, data, 0);
        v2xlog_HexDump(handle, V2XLOG_INFO, nullptr, 4);
        const auto fromHere = MatchesRegex("E QUOR test_v2xlog.cpp:operator\\(\\):[0-9]+:from here");
        EXPECT_THAT(Lines(path, TIME_LENGTH),
                    ElementsAre("I QUOR a  b   \xe8\xb7\xaf", "T MAIN default tag", "V MAIN " + std::string(4095, 'x'),
                                "F QUOR a.cpp:run:12:value -1", "E QUOR a.cpp:run:12:%ls",
                                "W QUOR a.cpp:" + std::string(4089, 'f'), fromHere, fromHere,
                                "I QUOR 0000  fe fe 10 00 0a 61 3a 62 3a 63 3a 7e 7f 20 7c ff   |.....a:b:c:~. |.|",
                                "I QUOR 0010  5a 1f                                             |Z.|"));
        EXPECT_THAT(readFile(path), testing::ContainsRegex("^[0-9]{4}-[0-9]{2}-[0-9]{2} "
                                                           "[0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} I QUOR"));
        EXPECT_FALSE(fs::exists(folder / "other.log"));
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
        Format(site, V2XLOG_ERROR, 2, "y"); // a line of another level is not equal
        Format(other, V2XLOG_WARN, 1, "y");
        site.textTime -= TEN_SECONDS;
        Format(site, V2XLOG_ERROR, 1, "y");
        for (int i = 0; i < 4; ++i) {
            V2XLOG(module, V2XLOG_INFO, "%s", i < 3 ? "same" : "new");
        }
        EXPECT_THAT(Lines(path, TIME_LENGTH),
                    ElementsAre("W MAIN a.cpp:f:1:x", "W MAIN b.cpp:f:2:x", "W MAIN a.cpp:f:1:y [6 more]",
                                "E MAIN a.cpp:f:1:y", "W MAIN b.cpp:f:2:y [6 more]", "E MAIN a.cpp:f:1:y [1 more]",
                                EndsWith(":same"), EndsWith(":new [2 more]")));
    });
}

TEST_F(V2xLog, LimitsPlaceToThreeHundredLinesInTenSecondsUpToDebug) {
    const std::tuple<int32_t, int32_t, size_t> rows[] = {
        {1, V2XLOG_FATAL, 301}, {1, V2XLOG_DEBUG, 301}, {1, V2XLOG_VERBOSE, 401},
        {1, V2XLOG_TRACE, 401}, {0, V2XLOG_ERROR, 401},
    };
    for (const auto& [limit, level, written] : rows) {
        InChild([this, limit = limit, level = level] {
            Start(limit);
            v2xlog_site site{"a.cpp", 1};
            for (int i = 0; i < 400; ++i) {
                Format(site, level, 1, level > V2XLOG_DEBUG ? "equal" : std::to_string(i));
            }
            site.windowStart -= TEN_SECONDS;
            Format(site, level, 1, "later");
        });
        const std::vector<std::string> lines = Lines(path);
        EXPECT_EQ(lines.size(), written) << level;
        EXPECT_THAT(lines.back(), EndsWith(written == 301 ? ":later [100 more]" : ":later")) << level;
        fs::remove(path);
    }
}

TEST_F(V2xLog, RotationKeepsFiveOldFilesAndEveryLineBetween) {
    InChild([this] {
        Start(0);
        constexpr int LINES = 18500; // seven files of 10 MiB and part of another
        const std::string rest(4050, 'r');
        for (int i = 0; i < LINES; ++i) {
            v2xlog_Print(tag, V2XLOG_INFO, (std::to_string(i) + ' ' + rest).c_str());
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

// Faults begin while the file is open and end later. Lines go to standard error meanwhile, except after the file was
// moved or removed: then it is created at once.
TEST_F(V2xLog, RecoversFromFaultsOfTheFile) {
    const auto limitFileSize = [](rlim_t bytes) {
        const rlimit limit{bytes, RLIM_INFINITY};
        ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    };
    const auto setImmutable = [this](const char* flag) { // stops root, too
        return std::system(("chattr " + std::string(flag) + " " + (folder / "a" / "b").string()).c_str());
    };
    const struct {
        const char* reason; // empty: no outage
        bool keepsFile;
        std::function<void()> begin;
        std::function<void()> end;
    } rows[] = {
        {"File too large", true, [&] { limitFileSize(fs::file_size(path) + 10); },
         [&] { limitFileSize(RLIM_INFINITY); }},
        {"the folder is not writable, so the file cannot be rotated", true, [&] { setImmutable("+i"); },
         [&] { setImmutable("-i"); }},
        {"not a regular file", false, [&] { fs::rename(path, folder / "moved.log"), fs::create_directory(path); },
         [&] { fs::remove(path); }},
        {"", false, [&] { fs::remove_all(folder / "a"); }, [] {}},
        {"", false, [&] { fs::rename(path, folder / "moved.log"); }, [] {}},
    };
    InChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        Start(0);
        v2xlog_Print(tag, V2XLOG_INFO, std::string(4000, 'f').c_str()); // more than standard error will hold
        const bool hasImmutable = setImmutable("+i") == 0 && setImmutable("-i") == 0;
        for (const auto& row : rows) {
            const std::string reason = row.reason;
            if (reason.starts_with("the folder") && !hasImmutable) {
                continue; // the user may not set the flag, or the file system has none
            }
            SCOPED_TRACE(reason);
            const std::string before = readFile(path);
            fs::resize_file(errors, 0);
            row.begin();
            EXPECT_TRUE(reason.empty() || LineArrives("meanwhile", errors));
            row.end();
            EXPECT_TRUE(LineArrives("after " + reason, path));
            const std::string log = readFile(path);
            EXPECT_TRUE(log.starts_with(before) || !row.keepsFile);
            if (reason.empty()) {
                EXPECT_EQ(readFile(errors), "");
                continue;
            }
            EXPECT_THAT(log, testing::ContainsRegex("W MAIN v2xlog: this file could not be written for [0-9]+ s: "
                                                    "[1-9][0-9]* lines went to standard error, 0 were lost\n"));
            const std::vector<std::string> lines = Lines(errors);
            EXPECT_THAT(lines.at(0), MatchesRegex("v2xlog: cannot write " + path.string() + ": .*" + reason +
                                                  "; logging to standard error until it can be written"));
            EXPECT_THAT(std::vector(lines.begin() + 1, lines.end()), testing::Each(HasSubstr(" I MAIN ")));
        }
    });
}

TEST_F(V2xLog, StartWithoutFileTellsTheReason) {
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0644), 0);
    writeFile(folder / "file", "x");
    const std::pair<fs::path, const char*> rows[] = {
        {folder / "pipe", "not a regular file"},
        {folder / "file" / "unit.log", "Not a directory"},
        {"", "No such file or directory"},
    };
    for (const auto& [file, reason] : rows) {
        fs::remove(errors);
        InChild([&, &file = file] {
            EXPECT_EQ(v2xlog_Init(file.c_str(), "MAIN", 1, 1, 0), -3);
            v2xlog_Print(nullptr, V2XLOG_INFO, "on standard error");
        });
        EXPECT_THAT(Lines(errors), ElementsAre(HasSubstr("cannot write " + file.string() + ": " + reason + ";"),
                                               HasSubstr(" I MAIN on standard error")));
    }
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
        std::atomic<int> running{0};
        for (int thread = 0; thread < 4; ++thread) {
            std::thread([this, thread, &running] {
                for (int i = 0;; ++i) {
                    static v2xlog_tag_t module{"MAIN"};
                    V2X_LOGHANDLE own = nullptr;
                    v2xlog_AddTag(("T" + std::to_string(thread)).c_str(), &own);
                    V2XLOG(module, V2XLOG_INFO, "shared place %d", i / 2);
                    v2xlog_Print(own, V2XLOG_INFO, "own line");
                    v2xlog_HexDump(tag, V2XLOG_DEBUG, reinterpret_cast<const uint8_t*>(&i), sizeof(i));
                    v2xlog_SetAllTagLevel(3 + i % 3);
                    running += i == 200 ? 1 : 0;
                }
            }).detach();
        }
        EXPECT_TRUE(eventually([&] { return running == 4; }));
    });
    const std::vector<std::string> lines = Lines(path);
    EXPECT_GT(lines.size(), 400U);
    EXPECT_THAT(lines, testing::Each(MatchesRegex("[0-9 :.-]{23} (I MAIN test_v2xlog.cpp:.*:shared place [0-9]+"
                                                  "( \\[[0-9]+ more\\])?|I T[0-3] own line"
                                                  "|D MAIN 0000  [0-9a-f ]{50}[|].{4}[|].*)")));
}

} // namespace
