#include <csignal>
#include <cstdlib>
#include <fstream>
#include <getopt.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "fakes.h"
#include "spat_conv_deamon.h"
#include "spat_conv_deamon_options.h"
#include "spat_conv_deamon_service.h"
#include "spat_conv_deamon_signals.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

v2xspatconv_options_t parse(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "v2x_spat_convert");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    optind = 0; // getopt starts anew
    return v2xspatconv_ParseOptions(static_cast<int32_t>(argv.size() - 1), argv.data());
}

TEST(Options, AreReadInOrderOverTheirDefaults) {
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
        {{"-d", "7", "-f", "a", "-w", "b"}, 7, "a", "b", ""},
        {{"--loglevel", "7", "--logfile=a", "--workdir", "b"}, 7, "a", "b", ""},
        {{"-f", "a", "-f", "b"}, 4, "b", "/opt/v2x_service", ""},
        {{"-d", "none"}, 0, defaultLog, "/opt/v2x_service", ""},
        {{"-d", "-12x"}, -12, defaultLog, "/opt/v2x_service", ""},
        {{"-x", "-d", "5"}, 5, defaultLog, "/opt/v2x_service", "this param error\n"},
        {{"--nothing", "-d"}, 4, defaultLog, "/opt/v2x_service", "this param error\nthis param error\n"},
        {{"-f", longText, "-w", longText}, 4, std::string(255, 'x'), std::string(255, 'x'), ""},
    };
    for (const auto& row : cases) {
        testing::internal::CaptureStdout();
        const v2xspatconv_options_t options = parse(row.arguments);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.printed);
        EXPECT_EQ(options.g_logLevelFlag, row.level);
        EXPECT_EQ(options.g_logfilePath, row.log);
        EXPECT_EQ(options.g_workDir, row.dir);
    }
}

// The handler, in a process of its own, with standard output on a pipe.
std::string caught(const std::vector<int>& signals) {
    int out[2];
    EXPECT_EQ(pipe(out), 0);
    const pid_t child = fork();
    if (child == 0) {
        dup2(out[1], STDOUT_FILENO);
        v2xspatconv_signalsRegister();
        for (const int sig : signals) {
            if (sig == SIGUSR1) {
                sigHandler(sig, nullptr, nullptr);
            } else {
                raise(sig);
            }
        }
        _exit(v2xspatconv_IsRunning() ? 1 : 0);
    }
    close(out[1]);
    std::string text;
    char c = 0;
    while (read(out[0], &c, 1) == 1) {
        text += c;
    }
    close(out[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return text + (WIFEXITED(status) && WEXITSTATUS(status) == 0 ? "stopped" : "not stopped");
}

TEST(Signals, AreCountedPrintedAndStopTheDaemon) {
    EXPECT_EQ(caught({SIGTERM}), "Caught SIGTERM (1)\nstopped");
    EXPECT_EQ(caught({SIGPIPE, SIGINT, SIGUSR1, SIGQUIT, SIGTERM}),
              "Caught SIGINT (1)\nCaught default (1)\nCaught SIGQUIT (2)\nCaught SIGTERM (3)\nstopped");
    EXPECT_EQ(caught({SIGPIPE}), "not stopped");
    const std::vector<int> many(12, SIGINT);
    EXPECT_THAT(caught(many), HasSubstr("Caught SIGINT (12)\n"));
}

TEST(Signals, AStopRequestBeforeTheSleepIsNotSleptOver) {
    v2xspatconv_signalsRegister();
    EXPECT_TRUE(v2xspatconv_IsRunning());
    v2xspatconv_RequestStop();
    EXPECT_FALSE(v2xspatconv_IsRunning());
    v2xspatconv_SleepUnlessStopped(-1); // would wait for ever
    EXPECT_EQ(v2xspatconv_exec(), 0);
}

class Start : public testing::Test {
protected:
    Start() {
        char file[] = "/tmp/v2x_deamon.XXXXXX";
        m_sysinfo = file;
        close(mkstemp(m_sysinfo.data()));
        std::ofstream(m_sysinfo) << "<device_id>RSU0001</device_id>";
        fakes::cfgTree["rsuSpatConfigInfo.Sysinfoname"] = m_sysinfo;
    }
    ~Start() override { unlink(m_sysinfo.c_str()); }

    static int32_t init() {
        char program[] = "v2x_spat_convert";
        char option[] = "-w";
        char dir[] = "/w";
        char* argv[] = {program, option, dir, nullptr};
        optind = 0;
        return v2xspatconv_init(3, argv);
    }
    std::string m_sysinfo;
};

std::vector<std::string> expectedJournal(std::vector<std::string> afterLog) {
    std::vector<std::string> journal = {"log.Init /opt/v2x_service/log/spat_conv.log SPAT 110"};
    for (const char* tag : {"UDPA", "TASK", "MQPS", "MCFG", "SPAT", "SDDS", "SCFG", "INTF", "SINF", "SCOM", "DOWN",
                            "SPUP", "VCFG", "UPER", "1743", "QUOR", "LSKU", "VIPC"}) {
        journal.push_back(std::string("log.AddTag ") + tag);
        journal.push_back(std::string("log.SetTagLevel ") + tag + " 4");
    }
    journal.insert(journal.end(), afterLog.begin(), afterLog.end());
    return journal;
}

TEST_F(Start, RunsEveryStepInOrder) {
    fakes::cfgTree["rsuSpatConfigInfo.LearnMachine.IsEnable"] = true;
    fakes::cfgTree["rsuSpatConfigInfo.SignalMachine1743.IsEnable"] = true;
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(fakes::journal,
              expectedJournal(
                  {"ipc.CfgInit /w", "pub.PubSubInit", "cfg.InitContext /w/conf/v2x_spat_convert.cfg",
                   "ipc.SocketInit SPAT_SEND_APP", "ipc.SocketInit GET_SPAT_DATA", "ipc.SocketInit SPAT_C_LOGTOOL",
                   "pub.TaskCreate LM_Heart_Data", "pub.UdpSocketInit QUOR_RECV_SG", "pub.UdpSocketInit QUOR_SEND_SG",
                   "pub.TaskCreate LM_Heart_Data", "pub.TaskCreate LM_Heart_Data", "pub.UdpSocketInit 1743_RECV_SG",
                   "pub.TaskCreate DIS_QUOR_SIGN", "pub.TaskCreate DIS_1743_SIGN"}));
    EXPECT_TRUE(v2xspatconv_IsRunning());
}

TEST_F(Start, FailuresOfLaterStepsDoNotEndIt) {
    fakes::socketResults = {{"SPAT_SEND_APP", -3}};
    fakes::taskResults = {{"DIS_QUOR_SIGN", -3}};
    EXPECT_EQ(init(), 0);
    EXPECT_EQ(fakes::journal,
              expectedJournal({"ipc.CfgInit /w", "pub.PubSubInit", "cfg.InitContext /w/conf/v2x_spat_convert.cfg",
                               "ipc.SocketInit SPAT_SEND_APP", "pub.TaskCreate DIS_QUOR_SIGN"}));
}

TEST_F(Start, AFailedConfigurationEndsItWithOneLine) {
    fakes::cfgInitResult = -4;
    testing::internal::CaptureStderr();
    EXPECT_EQ(init(), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "v2x_spat_convert: the tree's own reason\n");
    EXPECT_EQ(fakes::journal,
              expectedJournal({"ipc.CfgInit /w", "pub.PubSubInit", "cfg.InitContext /w/conf/v2x_spat_convert.cfg"}));
    EXPECT_EQ(v2xspatconv_exec(), 0); // returns at once
}

TEST(Service, TheWatchdogHalvesThePause) {
    unsetenv("WATCHDOG_USEC");
    EXPECT_EQ(v2xspatconv_ServiceInterval(5000), 5000);
    setenv("WATCHDOG_USEC", "3000000", 1);
    EXPECT_EQ(v2xspatconv_ServiceInterval(5000), 1500);
    setenv("WATCHDOG_USEC", "60000000", 1);
    EXPECT_EQ(v2xspatconv_ServiceInterval(5000), 5000);
    setenv("WATCHDOG_USEC", "1", 1);
    EXPECT_EQ(v2xspatconv_ServiceInterval(5000), 1);
}

} // namespace
