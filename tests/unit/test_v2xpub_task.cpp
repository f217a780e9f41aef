#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <atomic>
#include <vector>

#include "platform_util.h"
#include "v2x/v2xwatch.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t PERIOD_US = 20'000;
constexpr std::chrono::microseconds PERIOD{PERIOD_US};
constexpr uint32_t LONG_PERIOD_US = 3'600'000'000;

// What a task's thread did, for reading after the task has ended, and how long its runs take. Argument of the routines.
struct Record {
    std::string events; // 'e' for enter, 'r' for a run, 'x' for exit
    std::vector<Clock::time_point> runs;
    std::chrono::microseconds runTime{0};
    std::atomic<bool> isDone{false};
    bool (*isLastRun)(Record&) = [](Record&) { return true; }; // asked after each run
    char threadName[16] = "";
    size_t stackSize = 0;
    int policy = -1;
};

void Enter(void* arg) {
    auto& record = *static_cast<Record*>(arg);
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &record.stackSize);
    pthread_attr_destroy(&attributes);
    pthread_getname_np(pthread_self(), record.threadName, sizeof record.threadName);
    sched_param parameter{};
    pthread_getschedparam(pthread_self(), &record.policy, &parameter);
    record.events += 'e';
}

void Run(void* arg) {
    auto& record = *static_cast<Record*>(arg);
    record.runs.push_back(Clock::now());
    record.events += 'r';
    std::this_thread::sleep_for(record.runTime);
    record.isDone = record.isDone || record.isLastRun(record);
}

void Exit(void* arg) {
    static_cast<Record*>(arg)->events += 'x';
}

v2xpub_TaskInitPara_t TaskPara(Record& record, uint32_t period, e_v2xtask_type type = V2XTASK_TYPE_NONE) {
    v2xpub_TaskInitPara_t para{};
    std::fill_n(para.m_taskName, sizeof para.m_taskName, 'x'); // no NUL
    para.m_priority = 10;
    para.m_intervals = period;
    para.m_tskType = type;
    para.mp_arg = &record;
    para.f_tskFunEnter = Enter;
    para.f_tskFunExec = Run;
    para.f_tskFunExit = Exit;
    return para;
}

// Runs the task until the record is done and ends it. Returns the time of its start.
Clock::time_point RunTask(const v2xpub_TaskInitPara_t& para) {
    V2X_TASKHANDLE task = nullptr;
    const auto start = Clock::now();
    EXPECT_EQ(v2xpub_TaskCreate(&task, &para), 0);
    EXPECT_TRUE(eventually([&] { return static_cast<Record*>(para.mp_arg)->isDone.load(); }));
    EXPECT_EQ(v2xpub_TaskDelete(task), 0);
    return start;
}

TEST(Task, KeepsItsGridAlthoughRunsTakeHalfThePeriod) {
    Record record;
    record.runTime = PERIOD / 2;
    record.isLastRun = [](Record& r) { return r.runs.size() > 10 && r.runs.back() - r.runs.end()[-11] < 12 * PERIOD; };
    const auto start = RunTask(TaskPara(record, PERIOD_US));
    EXPECT_GE(record.runs.front() - start, PERIOD) << "the first run is one period after the call";
    EXPECT_THAT(record.events, testing::MatchesRegex("er+x"));
}

TEST(Task, SkipsMissedDeadlines) {
    Record record;
    record.runTime = 5 * PERIOD; // of the first run
    record.isLastRun = [](Record& r) {
        r.runTime = {};
        return r.runs.size() >= 10;
    };
    const auto start = RunTask(TaskPara(record, PERIOD_US));
    EXPECT_LE(static_cast<int64_t>(record.runs.size()), (Clock::now() - start) / PERIOD - 5);
}

TEST(Task, OneShotRunsOnce) {
    Record record;
    v2xpub_TaskInitPara_t para = TaskPara(record, 1000);
    para.m_isOneShot = true;
    RunTask(para);
    EXPECT_EQ(record.events, "erx");
}

TEST(Task, ThreadHasRequestedPropertiesAndEndsBeforeItsFirstRun) {
    sched_param parameter{10};
    const int realTime = sched_setscheduler(0, SCHED_RR, &parameter) == 0 ? SCHED_RR : SCHED_OTHER;
    parameter.sched_priority = 0;
    sched_setscheduler(0, SCHED_OTHER, &parameter);
    for (const auto& [type, policy] : {std::pair(V2XTASK_TYPE_NONE, SCHED_OTHER), {V2XTASK_TYPE_RR, realTime}}) {
        SCOPED_TRACE(type);
        Record record;
        record.isDone = true;
        RunTask(TaskPara(record, LONG_PERIOD_US, type));
        EXPECT_EQ(record.events, "ex");
        EXPECT_EQ(record.policy, policy);
        EXPECT_STREQ(record.threadName, "xxxxxxxxxxxxxxx");
        EXPECT_LT(record.stackSize, size_t{1024} * 1024) << "the thread sanitizer adds some; the default is 8 MiB";
    }
}

TEST(Task, IsStuckWhileARunHangs) {
    static std::atomic<bool> isHanging;
    isHanging = true;
    Record record;
    record.isLastRun = [](Record& r) {
        r.isDone = true;
        return eventually([] { return !isHanging; });
    };
    const v2xpub_TaskInitPara_t para = TaskPara(record, PERIOD_US);
    V2X_TASKHANDLE task = nullptr;
    ASSERT_EQ(v2xpub_TaskCreate(&task, &para), 0);
    ASSERT_TRUE(eventually([&] { return record.isDone.load(); }));
    const uint64_t now = v2xpub_GetMonotonicTime();
    const uint64_t later = now + v2x_watchedThread::LIMIT;
    EXPECT_THAT(v2x_watchedThread::FindStuck(now), testing::IsEmpty());
    EXPECT_THAT(v2x_watchedThread::FindStuck(later), testing::ElementsAre(std::string(sizeof para.m_taskName, 'x')));
    isHanging = false;
    EXPECT_TRUE(eventually([&] { return v2x_watchedThread::FindStuck(later).empty(); }));
    EXPECT_EQ(v2xpub_TaskDelete(task), 0);
}

void RunWithoutRealTimeRight() {
    constexpr uid_t NOBODY = 65534;
    const LogFile log("TASK");
    const uid_t user = geteuid();
    const rlimit none{0, 0};
    EXPECT_EQ(setrlimit(RLIMIT_RTPRIO, &none), 0);
    EXPECT_TRUE(user != 0 || seteuid(NOBODY) == 0);
    for (int i = 0; i < 2; ++i) {
        Record record;
        record.isDone = true;
        RunTask(TaskPara(record, LONG_PERIOD_US, V2XTASK_TYPE_RR));
        EXPECT_EQ(record.policy, SCHED_OTHER);
    }
    EXPECT_EQ(seteuid(user), 0);
    EXPECT_EQ(log.Count("ordinary scheduling"), 1);
}

// In a process of its own: the library tries real-time scheduling once per process.
TEST(Task, WithoutRealTimeRightRunsOrdinarilyAndWarnsOnce) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(RunWithoutRealTimeRight(); std::exit(HasFailure() ? 1 : 0), testing::ExitedWithCode(0), "");
}

} // namespace
