#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "device_test.h"
#include "spat_conv_deamon.h"
#include "spat_conv_deamon_codec_log.h"
#include "spat_conv_deamon_counters.h"
#include "spat_conv_deamon_options.h"
#include "spat_conv_deamon_service.h"
#include "spat_conv_deamon_signals.h"
#include "spat_conv_deamon_status.h"
#include "spat_conv_deamon_threads.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xwatch.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_log.h"
#include "v2xapp_upercodec.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

using Deamon = fakes::Fixture;

v2xspatconv_options_t parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "v2x_spat_convert");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    optind = 0; // restarts getopt
    return v2xspatconv_ParseOptions(static_cast<int32_t>(argv.size() - 1), argv.data());
}

// Output of `run` in a child process, and its exit status (3: `run` returned).
template <typename Run>
std::string printed(Run run) {
    const TempFolder folder;
    const std::string path = folder.path() + "/out";
    fflush(stdout); // the child's exit would write it again
    const pid_t child = fork();
    if (child == 0) {
        dup2(open(path.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600), STDOUT_FILENO);
        run();
        _exit(3);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return readFile(path) + "status " + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status));
}

TEST_F(Deamon, AppliesOptionsInOrder) {
    const std::string longText(300, 'x');
    const std::string defaultLog = "/opt/v2x_service/log/spat_conv.log";
    const struct {
        std::vector<std::string> arguments;
        int32_t level;
        std::string log;
        std::string dir;
        std::string printed;
    } cases[] = {
        {{}, 4, defaultLog, "/opt/v2x_service", ""},
        {{"--loglevel", "7", "--logfile=a", "--workdir", "b"}, 7, "a", "b", ""},
        {{"--nothing", "-d"}, 4, defaultLog, "/opt/v2x_service", "this param error\nthis param error\n"},
        {{"-f", longText, "-w", longText}, 4, std::string(255, 'x'), std::string(255, 'x'), ""},
    };
    for (const auto& row : cases) {
        const std::string seen = printed([&] {
            const v2xspatconv_options_t options = parse(row.arguments);
            _exit(options.g_logLevelFlag == row.level && options.g_logfilePath == row.log &&
                          options.g_workDir == row.dir
                      ? 0
                      : 1);
        });
        EXPECT_EQ(seen, row.printed + "status 0");
    }
}

TEST_F(Deamon, PrintsHelpAndVersionAndExits) {
    EXPECT_EQ(printed([] { parse({"-v", "-h"}); }), "version:rsu_cloud_v230522.001\nstatus 0");
    EXPECT_EQ(printed([] { parse({"--help"}); }),
              " -h             print Help;\n"
              " -v version     v2x_spat_convert version;\n"
              " -d loglevel    start with debug log level <level>,eg: \n"
              "                <v2x_spat_convert -l 7>, start with all log level 7; \n"
              " -f logfile     start with debug log file <logfile>,eg: \n"
              "                <v2x_spat_convert -f /opt/v2x_service/log/spat_conv.log>; \n"
              " -w workdir     start with workdir,eg: \n"
              "                <v2x_spat_convert -w /opt/v2x_service>;\n"
              "status 0");
}

// Output of the handler; status 0: it requested a stop.
std::string caught(const std::vector<int>& signals) {
    return printed([&] {
        v2xspatconv_signalsRegister();
        for (const int sig : signals) {
            raise(sig);
        }
        _exit(v2xspatconv_IsRunning() ? 1 : 0);
    });
}

TEST_F(Deamon, CountsAndPrintsSignalsAndStops) {
    EXPECT_EQ(caught({SIGPIPE, SIGINT, SIGQUIT, SIGTERM}),
              "Caught SIGINT (1)\nCaught SIGQUIT (2)\nCaught SIGTERM (3)\nstatus 0");
    EXPECT_EQ(caught({SIGPIPE, SIGXFSZ, SIGHUP}), "status 1");
    EXPECT_THAT(caught(std::vector<int>(12, SIGINT)), HasSubstr("Caught SIGINT (12)\n"));
}

TEST_F(Deamon, PrintsOptionErrorsBeforeSignalLines) {
    const std::string seen = printed([] {
        parse({"-x"});
        v2xspatconv_signalsRegister();
        raise(SIGTERM);
        _exit(0);
    });
    EXPECT_EQ(seen, "this param error\nCaught SIGTERM (1)\nstatus 0");
}

TEST_F(Deamon, StopRequestBeforeTheSleepEndsTheSleep) {
    const std::string seen = printed([] {
        v2xspatconv_signalsRegister();
        v2xspatconv_RequestStop();
        v2xspatconv_SleepUnlessStopped(-1); // would wait for ever
        _exit(v2xspatconv_IsRunning() ? 1 : v2xspatconv_exec());
    });
    EXPECT_EQ(seen, "status 0");
}

// In a child, whose running flag no other test has cleared. A timer stops the loop in its first sleep.
TEST_F(Deamon, LoopRereadsTimeZoneAndCloudStatusNotesHangupAndClosesTheChannel) {
    const std::string seen = printed([] {
        setenv("TZ", "UTC0", 1);
        tzset();
        setenv("TZ", "CST-8", 1);
        v2xspatconv_signalsRegister();
        raise(SIGHUP);
        v2xspatconv_SetCloudStatus(V2X_CONV_RUN_STATUS_AVAILABLE);
        signal(SIGALRM, [](int /*sig*/) { v2xspatconv_RequestStop(); });
        ualarm(20000, 0);
        v2xspatconv_exec();
        const time_t epoch = 0;
        tm local = {};
        localtime_r(&epoch, &local);
        _exit(local.tm_hour == 8 && v2xspatconv_GetddsInfo()->cloud_available &&
                      fakes::journal.back().starts_with("dds.destroy_dds") &&
                      fakes::logged("SIGHUP ignored, restart the daemon to apply a changed configuration").size() == 1
                  ? 0
                  : 1);
    });
    EXPECT_EQ(seen, "status 0");
}

TEST_F(Deamon, StatusLineNamesEverySourceStackAndCloud) {
    using State = v2xspatconv_sourceState;
    using Stack = v2xspatconv_stackState;
    const struct {
        State states[V2XSPATCONV_SOURCES];
        uint64_t seconds; // age of the last records
        Stack stack;
        bool isCloudAvailable;
        const char* line;
    } cases[] = {
        {{State::fresh, State::stale, State::unwatched},
         71,
         Stack::answers,
         true,
         "learner fresh, 1743 stale 71 s, stack answers, cloud available"},
        {{State::waiting, State::off, State::stale},
         120,
         Stack::unknown,
         false,
         "learner waiting, 1743 off, cloud stale 2 min, stack not asked yet, cloud unavailable"},
        {{State::unwatched, State::stale, State::fresh},
         7200,
         Stack::silent,
         false,
         "learner unwatched, 1743 stale 2 h, cloud fresh, stack does not answer, cloud unavailable"},
    };
    for (const auto& row : cases) {
        v2xspatconv_sourceRow_t rows[V2XSPATCONV_SOURCES];
        for (size_t i = 0; i < std::size(rows); i++) {
            rows[i].state = row.states[i];
            rows[i].lastAccepted = 5000000;
        }
        EXPECT_EQ(v2xspatconv_FormatStatus(rows, row.stack, row.isCloudAvailable, 5000000 + row.seconds * 1000000),
                  row.line);
    }
}

TEST_F(Deamon, LogsChangedCountersAndAllAtTheEnd) {
    static v2x_counter taken("path", "taken");
    v2xspatconv_LogCounters(false);
    taken.Add();
    v2xspatconv_LogCounters(false);
    v2xspatconv_LogCounters(false);
    EXPECT_EQ(fakes::logged("counters path: taken 1").size(), 1U);
    fakes::socketStats["SOCK"] = {
        .received = 5, .tooLong = 0, .kernelDrops = 4, .sent = 0, .sendErrors = 3, .refusedSender = 2};
    v2xspatconv_LogCounters(true);
    EXPECT_EQ(fakes::logged("counters path: taken 1").size(), 2U);
    EXPECT_EQ(fakes::logged("counters SOCK: received 5, kernel_drops 4, send_errors 3, refused_sender 2").size(), 1U);
}

TEST_F(Deamon, LogsAStuckThreadOnceAndItsProgress) {
    v2x_watchedThread thread("NAME");
    thread.Work();
    EXPECT_TRUE(v2xspatconv_CheckThreads(1000000));
    EXPECT_FALSE(v2xspatconv_CheckThreads(11000000));
    EXPECT_FALSE(v2xspatconv_CheckThreads(12000000));
    EXPECT_THAT(fakes::takeLog(),
                ElementsAre("SPAT 2 thread NAME has made no progress for 10 s; the watchdog is not fed"));
    thread.Work();
    EXPECT_TRUE(v2xspatconv_CheckThreads(13000000));
    const auto lines = fakes::logged("thread NAME makes progress again");
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, V2XLOG_INFO);
}

TEST_F(Deamon, RefusedConfigurationEndsWith78UnderAServiceManagerOnly) {
    unsetenv("NOTIFY_SOCKET");
    EXPECT_EQ(v2xspatconv_ServiceRefusedStatus(), 0);
    EXPECT_FALSE(v2xspatconv_ServiceStatus("learner fresh"));
    setenv("NOTIFY_SOCKET", "/nonexistent/notify", 1);
    EXPECT_EQ(v2xspatconv_ServiceRefusedStatus(), 78);
    EXPECT_FALSE(v2xspatconv_ServiceStatus("learner fresh"));
    unsetenv("NOTIFY_SOCKET");
}

using Start = DeviceTest;

TEST_F(Start, RefusedPortTableEndsTheStart) {
    fakes::reset();
    fakes::ipcCfgInitResult = -5;
    const std::string seen = printed([] {
        dup2(STDOUT_FILENO, STDERR_FILENO);
        std::string argument = "v2x_spat_convert";
        char* argv[] = {argument.data(), nullptr};
        optind = 0;
        _exit(v2xspatconv_init(1, argv) == -5 && !v2xspatconv_IsRunning() && fakes::sockets.empty() ? 0 : 1);
    });
    EXPECT_EQ(seen, "v2x_spat_convert: the port table's own reason\nstatus 0");
}

TEST_F(Start, RunsEveryStepInOrder) {
    fakes::reset();
    m_config->m_learn_machine_info.m_is_enable = true;
    m_config->m_signal_machine_1743_info.m_is_enable = true;
    std::string arguments[] = {"v2x_spat_convert", "-w/w", "-d7"};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), nullptr};
    optind = 0;
    EXPECT_EQ(v2xspatconv_init(3, argv), 0);
    EXPECT_THAT(fakes::journal, testing::Contains("log.SetTagLevel VIPC 7"));
    std::erase_if(fakes::journal, [](const std::string& call) {
        return call.starts_with("log.AddTag") || call.starts_with("log.SetTagLevel") || call.starts_with("dds.");
    });
    EXPECT_THAT(
        fakes::journal,
        ElementsAre("log.Init /opt/v2x_service/log/spat_conv.log SPAT 110", "ipc.CfgInit /w", "pub.PubSubInit",
                    "ipc.SocketInit SPAT_SEND_APP", "ipc.SocketInit GET_SPAT_DATA", "ipc.SocketInit SPAT_C_LOGTOOL",
                    "pub.TaskCreate LM_Heart_Data", "pub.UdpSocketInit QUOR_RECV_SG", "pub.UdpSocketInit QUOR_SEND_SG",
                    "pub.TaskCreate LM_Heart_Data", "pub.TaskCreate LM_Heart_Data", "pub.UdpSocketInit 1743_RECV_SG",
                    "pub.TaskCreate spat_conv_stat", "pub.TaskCreate Get_SPAT_Data", "pub.TaskCreate Deal_SPAT_Data",
                    "pub.TaskCreate DIS_QUOR_SIGN", "pub.TaskCreate DIS_1743_SIGN"));
    EXPECT_EQ(runStatus(), V2X_CONV_RUN_STATUS_AVAILABLE);
    v2xcodec_freeStrcut(nullptr);
    EXPECT_EQ(fakes::logged("struct is null").size(), 1U);
    v2xcodec_setLog(nullptr);
}

// Each log statement of the codec has one site, so the log limits its rate by itself.
TEST_F(Deamon, LogsLinesOfCodec) {
    const auto logAll = [] {
        v2xcodec_freeStrcut(nullptr);
        v2xcodec_print(nullptr);
        v2xapp_GBMsgSPATMoy(nullptr, nullptr);
        v2xcodec_freeStrcut(nullptr);
    };
    v2xspatconv_SetCodecLog();
    logAll();
    fakes::setLogLevel(V2XLOG_FATAL);
    logAll();
    v2xcodec_setLog(nullptr);
    fakes::setLogLevel(V2XLOG_ERROR);
    logAll();
    std::string seen;
    std::set<const v2xlog_site*> sites;
    for (const fakes::LogLine& line : fakes::logLines) {
        seen += line.tag + std::to_string(line.level) + " " + line.site->file + ":" + line.function + ":" + line.text +
                "\n";
        sites.insert(line.site);
    }
    EXPECT_EQ(seen, "UPER2 v2xapp_upercodec.cpp:v2xcodec_freeStrcut:struct is null\n"
                    "UPER2 v2xapp_private.h:v2xcodec_print:input para error!\n"
                    "GBSM2 v2xapp_private.h:v2xapp_GBMsgSPATMoy:input err\n"
                    "UPER2 v2xapp_upercodec.cpp:v2xcodec_freeStrcut:struct is null\n");
    EXPECT_EQ(sites.size(), 2U);
}

} // namespace
