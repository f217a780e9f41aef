#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <mutex>
#include <vector>

#include "platform_util.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using testing::ElementsAre;

constexpr uint32_t PERIOD_US = 20'000;
constexpr std::chrono::microseconds PERIOD{PERIOD_US};
constexpr uint32_t LONG_PERIOD_US = 3'600'000'000;

// What a task did, in order, and how its thread is made. The routines take it as their argument.
struct Record {
    std::mutex mutex;
    std::vector<std::string> events;
    std::vector<Clock::time_point> runs;
    milliseconds runTime{0};
    size_t overlongRun = SIZE_MAX; // this run lasts five periods
    char threadName[16] = "";
    size_t stackSize = 0;
    int policy = -1;
    bool stopSignalsBlocked = false;

    void Add(const char* event) {
        const std::lock_guard lock(mutex);
        events.emplace_back(event);
    }
    // A copy of one of the lists, while the task goes on.
    template <typename List>
    List Copy(const List& list) {
        const std::lock_guard lock(mutex);
        return list;
    }
};

void Enter(void* arg) {
    auto& record = *static_cast<Record*>(arg);
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    sched_param parameter{};
    {
        const std::lock_guard lock(record.mutex);
        record.stopSignalsBlocked =
            sigismember(&blocked, SIGINT) && sigismember(&blocked, SIGQUIT) && sigismember(&blocked, SIGTERM);
        pthread_getname_np(pthread_self(), record.threadName, sizeof record.threadName);
        pthread_attr_getstacksize(&attributes, &record.stackSize);
        pthread_getschedparam(pthread_self(), &record.policy, &parameter);
    }
    pthread_attr_destroy(&attributes);
    record.Add("enter");
}

void Exec(void* arg) {
    auto& record = *static_cast<Record*>(arg);
    size_t number = 0;
    {
        const std::lock_guard lock(record.mutex);
        record.runs.push_back(Clock::now());
        number = record.runs.size();
    }
    record.Add("exec");
    std::this_thread::sleep_for(number == record.overlongRun ? 5 * PERIOD : record.runTime);
}

void Exit(void* arg) {
    static_cast<Record*>(arg)->Add("exit");
}

v2xpub_TaskInitPara_t TaskPara(Record& record, uint32_t period) {
    v2xpub_TaskInitPara_t para{};
    std::snprintf(para.m_taskName, sizeof para.m_taskName, "a_task_with_a_long_name");
    para.m_priority = 10;
    para.m_intervals = period;
    para.m_tskType = V2XTASK_TYPE_NONE;
    para.mp_arg = &record;
    para.f_tskFunEnter = Enter;
    para.f_tskFunExec = Exec;
    para.f_tskFunExit = Exit;
    return para;
}

// Ten runs in a row that took hardly more than ten periods, although each run took half of one.
bool KeptItsGrid(const std::vector<Clock::time_point>& runs) {
    for (size_t i = 10; i < runs.size(); ++i) {
        if (runs[i] - runs[i - 10] < 12 * PERIOD) {
            return true;
        }
    }
    return false;
}

// Runs the task until `done`. The time of its start.
template <typename Predicate>
Clock::time_point RunTask(const v2xpub_TaskInitPara_t& para, Predicate done) {
    V2X_TASKHANDLE task = nullptr;
    const auto before = Clock::now();
    EXPECT_EQ(v2xpub_TaskCreate(&task, &para), 0);
    EXPECT_TRUE(eventually(done));
    EXPECT_EQ(v2xpub_TaskDelete(task), 0);
    return before;
}

TEST(Task, RunsOnAGridOfItsPeriod) {
    Record record;
    record.runTime = milliseconds(10);
    const auto before = RunTask(TaskPara(record, PERIOD_US), [&] { return KeptItsGrid(record.Copy(record.runs)); });
    EXPECT_GE(record.runs.front() - before, PERIOD) << "the first run is one period after the call";
    EXPECT_EQ(record.events.front(), "enter");
    EXPECT_EQ(record.events.back(), "exit");
}

TEST(Task, SkipsTheDeadlinesThatARunMissed) {
    Record record;
    record.overlongRun = 3;
    const auto before = RunTask(TaskPara(record, PERIOD_US), [&] { return record.Copy(record.runs).size() >= 10; });
    const auto deadlines = (Clock::now() - before) / PERIOD;
    EXPECT_LE(static_cast<int64_t>(record.runs.size()), deadlines - 5);
}

TEST(Task, OneShotRunsOnce) {
    Record record;
    v2xpub_TaskInitPara_t para = TaskPara(record, 1000);
    para.m_isOneShot = true;
    RunTask(para, [&] { return record.Copy(record.events).size() >= 3; });
    EXPECT_THAT(record.events, ElementsAre("enter", "exec", "exit"));
}

// The policy that a thread of this process gets when it asks for `policy`.
int PolicyGranted(int policy) {
    int granted = -1;
    std::thread([&] {
        sched_param parameter{};
        parameter.sched_priority = policy == SCHED_OTHER ? 0 : 10;
        pthread_setschedparam(pthread_self(), policy, &parameter);
        pthread_getschedparam(pthread_self(), &granted, &parameter);
    }).join();
    return granted;
}

// Also, each ends although its first run is an hour away.
TEST(Task, ThreadIsMadeAsAsked) {
    const struct {
        e_v2xtask_type type;
        int policy;
    } rows[] = {
        {V2XTASK_TYPE_NONE, SCHED_OTHER},
        {V2XTASK_TYPE_FIFO, SCHED_FIFO},
        {V2XTASK_TYPE_RR, SCHED_RR},
        {V2XTASK_TYPE_OTHER, SCHED_OTHER},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        Record record;
        v2xpub_TaskInitPara_t para = TaskPara(record, LONG_PERIOD_US);
        para.m_tskType = row.type;
        std::fill_n(para.m_taskName, sizeof para.m_taskName, 'x'); // no NUL
        RunTask(para, [] { return true; });
        EXPECT_THAT(record.events, ElementsAre("enter", "exit"));
        EXPECT_EQ(record.policy, PolicyGranted(row.policy));
        EXPECT_STREQ(record.threadName, "xxxxxxxxxxxxxxx");
        EXPECT_GE(record.stackSize, size_t{512} * 1024);
        EXPECT_LT(record.stackSize, size_t{1024} * 1024) << "the thread sanitizer adds some, the default is 8 MiB";
        EXPECT_TRUE(record.stopSignalsBlocked);
    }
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    EXPECT_EQ(sigismember(&blocked, SIGTERM), 0) << "the creator keeps its own mask";
}

TEST(Task, WithoutTheRightToRealTimeItRunsOrdinarilyAndWarnsOnce) {
    constexpr uid_t NOBODY = 65534;
    const LogFile log{"TASK"};
    const uid_t user = geteuid();
    const rlimit none{0, 0};
    setrlimit(RLIMIT_RTPRIO, &none);
    ASSERT_TRUE(user != 0 || seteuid(NOBODY) == 0);
    for (int i = 0; i < 2; ++i) {
        Record record;
        v2xpub_TaskInitPara_t para = TaskPara(record, LONG_PERIOD_US);
        para.m_tskType = V2XTASK_TYPE_RR;
        RunTask(para, [] { return true; });
        EXPECT_EQ(record.policy, SCHED_OTHER);
    }
    ASSERT_EQ(seteuid(user), 0);
    EXPECT_EQ(log.Count({"ordinary scheduling"}), 1);
}

TEST(Task, RefusesUnfitParameters) {
    const struct {
        const char* fault;
        void (*spoil)(v2xpub_TaskInitPara_t&);
    } rows[] = {
        {"no routine", [](v2xpub_TaskInitPara_t& para) { para.f_tskFunExec = nullptr; }},
        {"event", [](v2xpub_TaskInitPara_t& para) { para.m_eventTrigFlag = true; }},
        {"short period", [](v2xpub_TaskInitPara_t& para) { para.m_intervals = 999; }},
        {"type below", [](v2xpub_TaskInitPara_t& para) { para.m_tskType = e_v2xtask_type{-1}; }},
        {"type above", [](v2xpub_TaskInitPara_t& para) { para.m_tskType = e_v2xtask_type{4}; }},
        {"priority 0", [](v2xpub_TaskInitPara_t& para) { para.m_priority = 0; }},
        {"priority 100", [](v2xpub_TaskInitPara_t& para) { para.m_priority = 100; }},
    };
    Record record;
    const auto untouched = reinterpret_cast<V2X_TASKHANDLE>(&record);
    for (const auto& row : rows) {
        v2xpub_TaskInitPara_t para = TaskPara(record, PERIOD_US);
        para.m_tskType = V2XTASK_TYPE_RR;
        row.spoil(para);
        V2X_TASKHANDLE task = untouched;
        EXPECT_EQ(v2xpub_TaskCreate(&task, &para), -2) << row.fault;
        EXPECT_EQ(task, untouched) << row.fault;
    }
    const v2xpub_TaskInitPara_t para = TaskPara(record, PERIOD_US);
    V2X_TASKHANDLE task = nullptr;
    EXPECT_EQ(v2xpub_TaskCreate(nullptr, &para), -2);
    EXPECT_EQ(v2xpub_TaskCreate(&task, nullptr), -2);
    EXPECT_EQ(v2xpub_TaskDelete(nullptr), 0);
}

} // namespace
