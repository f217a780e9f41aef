#include "v2xdds_dispatch.h"

#include <pthread.h>

#include <exception>
#include <functional>
#include <utility>

#include "v2x/v2xcount.h"
#include "v2xdds_log.h"
#include "v2xdds_reader.h"

namespace {

v2x_counter g_noMemory{"dds", "no_memory"};

thread_local const v2xdds_dispatch* t_running = nullptr; // whose thread this is

bool HandOn(v2xdds_reader& reader) {
    try {
        return reader.HandOnOne();
    } catch (const std::exception& fault) { // no memory for a sample: it is lost, the thread goes on
        g_noMemory.Add();
        V2XLOG(g_v2xddsLog, V2XLOG_ERROR, "a sample is lost: %s", fault.what());
        return true;
    }
}
} // namespace

bool v2xdds_dispatch::IsCaller() const {
    return t_running == this;
}

void v2xdds_dispatch::Start(const Readers& readers, std::function<Clock::time_point()> tend) {
    m_thread = std::thread(&v2xdds_dispatch::Run, this, std::cref(readers), std::move(tend));
    pthread_setname_np(m_thread.native_handle(), "v2xdds");
}

void v2xdds_dispatch::Wake() {
    {
        const std::lock_guard lock(m_mutex);
        m_isPending = true;
    }
    m_wake.notify_one();
}

void v2xdds_dispatch::Stop() {
    {
        const std::lock_guard lock(m_mutex);
        m_isStopping = true;
    }
    m_wake.notify_one();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void v2xdds_dispatch::Run(const Readers& readers, const std::function<Clock::time_point()>& tend) {
    t_running = this;
    auto due = Clock::time_point::max();
    std::unique_lock lock(m_mutex);
    while (!m_isStopping) {
        m_wake.wait_until(lock, due, [this] { return m_isPending || m_isStopping; });
        m_isPending = false;
        lock.unlock();
        // One sample of each topic in turn, so that a busy topic does not keep the others waiting.
        bool isMore = false;
        for (const auto& reader : readers) {
            isMore |= HandOn(*reader);
        }
        due = tend();
        lock.lock();
        m_isPending |= isMore;
    }
}
