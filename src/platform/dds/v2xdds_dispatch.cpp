#include "v2xdds_dispatch.h"

#include <pthread.h>

#include <functional>

#include "v2x/v2xwatch.h"

namespace {

constexpr char THREAD_NAME[] = "v2xdds";

// The dispatcher that started the current thread; null on all other threads.
thread_local const v2xdds_dispatch* t_dispatcher = nullptr;

} // namespace

bool v2xdds_dispatch::IsOwnThread() const {
    return t_dispatcher == this;
}

void v2xdds_dispatch::Start(const Readers& readers) {
    m_thread = std::thread(&v2xdds_dispatch::Run, this, std::cref(readers));
    pthread_setname_np(m_thread.native_handle(), THREAD_NAME);
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

void v2xdds_dispatch::Run(const Readers& readers) {
    t_dispatcher = this;
    v2x_watchedThread thread(THREAD_NAME);
    std::unique_lock lock(m_mutex);
    while (!m_isStopping) {
        thread.Wait();
        m_wake.wait(lock, [this] { return m_isPending || m_isStopping; });
        thread.Work();
        m_isPending = false;
        lock.unlock();
        // Deliver one sample of each topic in turn, so that a busy topic does not delay the other topics.
        bool hasMore = false;
        for (const auto& reader : readers) {
            hasMore |= reader->DeliverOne();
        }
        lock.lock();
        m_isPending |= hasMore;
    }
}
