#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>

#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"
#include "v2x/v2xwatch.h"
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
    bool isStopping = false; // guarded by mutex
};

namespace {

int GetPolicy(e_v2xtask_type type) {
    switch (type) {
    case V2XTASK_TYPE_FIFO:
        return SCHED_FIFO;
    case V2XTASK_TYPE_RR:
        return SCHED_RR;
    default:
        return SCHED_OTHER;
    }
}

v2xpub_scheduling GetScheduling(const v2xpub_TaskInitPara_t& para) {
    const int policy = GetPolicy(para.m_tskType);
    return {policy, policy == SCHED_OTHER ? 0 : static_cast<int>(para.m_priority)};
}

// Returns the reason to reject the parameters, or null if they are valid.
const char* FindFault(const v2xpub_TaskInitPara_t& para) {
    const bool isRealTime = GetPolicy(para.m_tskType) != SCHED_OTHER;
    const struct {
        bool isFault;
        const char* text;
    } checks[] = {
        {para.f_tskFunExec == nullptr, "f_tskFunExec is null"},
        {para.m_eventTrigFlag, "event triggers are not supported"},
        {para.m_intervals < INTERVAL_MIN_US, "the period is below 1000 microseconds"},
        {para.m_tskType < V2XTASK_TYPE_NONE || para.m_tskType > V2XTASK_TYPE_OTHER, "m_tskType is unknown"},
        {isRealTime && (para.m_priority < PRIORITY_MIN || para.m_priority > PRIORITY_MAX),
         "the priority is not in the range 1 to 99"},
    };
    for (const auto& check : checks) {
        if (check.isFault) {
            return check.text;
        }
    }
    return nullptr;
}

// Sleeps until the deadline. Returns false if the task must end.
bool SleepUntil(v2xpub_task& task, Clock::time_point deadline) {
    std::unique_lock lock(task.mutex);
    return !task.wake.wait_until(lock, deadline, [&task] { return task.isStopping; });
}

void RunOnce(v2xpub_task& task) {
    if (SleepUntil(task, task.created + std::chrono::microseconds(task.para.m_intervals))) {
        task.para.f_tskFunExec(task.para.mp_arg);
    }
}

uint64_t ToMicroseconds(Clock::time_point time) {
    return std::chrono::duration_cast<std::chrono::duration<uint64_t, std::micro>>(time.time_since_epoch()).count();
}

void RunPeriodically(v2xpub_task& task) {
    v2x_watchedThread thread(task.name);
    const auto period = std::chrono::microseconds(task.para.m_intervals);
    auto deadline = task.created + period;
    while (true) {
        thread.WaitUntil(ToMicroseconds(deadline));
        if (!SleepUntil(task, deadline)) {
            return;
        }
        task.para.f_tskFunExec(task.para.mp_arg);
        // Skip the deadlines that passed during the run and continue with the next deadline in the future.
        deadline = task.created + period * ((Clock::now() - task.created) / period + 1);
    }
}

void* TaskThread(void* arg) {
    v2xpub_task& task = *static_cast<v2xpub_task*>(arg);
    v2xpub_NameThread(task.name);
    if (task.para.f_tskFunEnter != nullptr) {
        task.para.f_tskFunEnter(task.para.mp_arg);
    }
    if (task.para.m_isOneShot) {
        RunOnce(task);
    } else {
        RunPeriodically(task);
    }
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
    if (const char* fault = FindFault(*para); fault != nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "cannot create task %s: %s", task->name.c_str(), fault);
        return -2;
    }
    v2xpub_PubSubInit();
    // Store the handle before the thread starts, because the routines may read the caller's handle.
    auto* const previousHandle = *handle;
    *handle = task.get();
    const int error =
        v2xpub_StartThread(&task->thread, task->name.c_str(), GetScheduling(*para), TaskThread, task.get());
    if (error != 0) {
        *handle = previousHandle;
        V2XLOG(g_log, V2XLOG_ERROR, "cannot start the thread of task %s: %s", task->name.c_str(), std::strerror(error));
        return -3;
    }
    static_cast<void>(task.release()); // v2xpub_TaskDelete frees the task
    return 0;
}

int32_t v2xpub_TaskDelete(V2X_TASKHANDLE handle) {
    if (handle == nullptr) {
        return 0;
    }
    {
        const std::lock_guard lock(handle->mutex);
        handle->isStopping = true;
    }
    handle->wake.notify_one();
    if (pthread_join(handle->thread, nullptr) != 0) {
        return -2; // the task is the caller: the task ends after the current run, but is never freed
    }
    delete handle;
    return 0;
}
