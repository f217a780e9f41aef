#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"
#include "v2xpub_thread.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t INTERVAL_MIN_US = 1000;
constexpr uint32_t PRIORITY_MIN = 1;
constexpr uint32_t PRIORITY_MAX = 99;

v2xlog_tag_t g_log{"TASK"};

} // namespace

struct v2xpub_task {
    v2xpub_TaskInitPara_t para{};
    std::string name;
    Clock::time_point created;
    pthread_t thread{};
    std::mutex mutex;
    std::condition_variable wake;
    bool stop = false; // guarded by mutex
};

namespace {

int PolicyOf(e_v2xtask_type type) {
    switch (type) {
    case V2XTASK_TYPE_FIFO:
        return SCHED_FIFO;
    case V2XTASK_TYPE_RR:
        return SCHED_RR;
    default:
        return SCHED_OTHER;
    }
}

v2xpub_scheduling SchedulingOf(const v2xpub_TaskInitPara_t& para) {
    const int policy = PolicyOf(para.m_tskType);
    return {policy, policy == SCHED_OTHER ? 0 : static_cast<int>(para.m_priority)};
}

// The reason to reject the parameters, or null.
const char* FaultOf(const v2xpub_TaskInitPara_t& para) {
    const bool realTime = PolicyOf(para.m_tskType) != SCHED_OTHER;
    const struct {
        bool isFault;
        const char* text;
    } checks[] = {
        {para.f_tskFunExec == nullptr, "no routine to run"},
        {para.m_eventTrigFlag, "event triggers are not supported"},
        {para.m_intervals < INTERVAL_MIN_US, "period below 1000 microseconds"},
        {para.m_tskType < V2XTASK_TYPE_NONE || para.m_tskType > V2XTASK_TYPE_OTHER, "unknown scheduling type"},
        {realTime && (para.m_priority < PRIORITY_MIN || para.m_priority > PRIORITY_MAX), "priority not in 1 to 99"},
    };
    for (const auto& check : checks) {
        if (check.isFault) {
            return check.text;
        }
    }
    return nullptr;
}

// Sleeps until the deadline. False: the task must end.
bool SleepUntil(v2xpub_task& task, Clock::time_point deadline) {
    std::unique_lock lock(task.mutex);
    return !task.wake.wait_until(lock, deadline, [&task] { return task.stop; });
}

void RunPeriodically(v2xpub_task& task) {
    const auto period = std::chrono::microseconds(task.para.m_intervals);
    auto deadline = task.created + period;
    while (SleepUntil(task, deadline)) {
        task.para.f_tskFunExec(task.para.mp_arg);
        if (task.para.m_isOneShot) {
            return;
        }
        // The next deadline in the future: deadlines missed during the run are skipped.
        deadline = task.created + period * ((Clock::now() - task.created) / period + 1);
    }
}

void* TaskThread(void* arg) {
    v2xpub_task& task = *static_cast<v2xpub_task*>(arg);
    v2xpub_NameThread(task.name);
    if (task.para.f_tskFunEnter != nullptr) {
        task.para.f_tskFunEnter(task.para.mp_arg);
    }
    RunPeriodically(task);
    if (task.para.f_tskFunExit != nullptr) {
        task.para.f_tskFunExit(task.para.mp_arg);
    }
    return nullptr;
}

} // namespace

int32_t v2xpub_TaskCreate(V2X_TASKHANDLE* handle, const v2xpub_TaskInitPara_t* para) {
    if (handle == nullptr || para == nullptr) {
        return -2;
    }
    auto task = std::make_unique<v2xpub_task>();
    task->created = Clock::now();
    task->para = *para;
    task->name = v2xpub_FieldText(para->m_taskName);
    if (const char* fault = FaultOf(*para); fault != nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "task %s: %s", task->name.c_str(), fault);
        return -2;
    }
    v2xpub_PubSubInit();
    // The routines may read the caller's handle as soon as the thread runs.
    auto* const before = *handle;
    *handle = task.get();
    const int error =
        v2xpub_StartThread(&task->thread, task->name.c_str(), SchedulingOf(*para), TaskThread, task.get());
    if (error != 0) {
        *handle = before;
        V2XLOG(g_log, V2XLOG_ERROR, "task %s: cannot start its thread: %s", task->name.c_str(), std::strerror(error));
        return -3;
    }
    static_cast<void>(task.release()); // v2xpub_TaskDelete frees it
    return 0;
}

int32_t v2xpub_TaskDelete(V2X_TASKHANDLE handle) {
    if (handle == nullptr) {
        return 0;
    }
    {
        const std::lock_guard lock(handle->mutex);
        handle->stop = true;
    }
    handle->wake.notify_one();
    if (pthread_join(handle->thread, nullptr) != 0) {
        return -2; // called by the task itself: it ends after this run, and its record is not freed
    }
    delete handle;
    return 0;
}
