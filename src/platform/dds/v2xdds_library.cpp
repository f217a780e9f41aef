#include "v2xdds_library.h"

#include <pthread.h>

#include <fastdds/dds/log/Log.hpp>
#include <fastrtps/attributes/LibrarySettingsAttributes.h>
#include <fastrtps/xmlparser/XMLProfileManager.h>
#include <memory>
#include <mutex>

#include "v2xdds_log.h"

namespace {

using eprosima::fastdds::dds::Log;

// Runs on the log thread of Fast DDS. v2xlog rate-limits repeated lines.
class V2xlogConsumer : public eprosima::fastdds::dds::LogConsumer {
public:
    void Consume(const Log::Entry& entry) override {
        const int32_t level = entry.kind == Log::Error ? V2XLOG_ERROR : V2XLOG_WARN;
        const char* const category = entry.context.category != nullptr ? entry.context.category : "";
        if (entry.kind != Log::Info) {
            V2XLOG(g_v2xddsLog, level, "Fast DDS %s: %s", category, entry.message.c_str());
        }
    }
};

void ConfigureLibrary() {
    Log::ClearConsumers(); // the default consumer writes to standard output
    Log::RegisterConsumer(std::make_unique<V2xlogConsumer>());
    Log::SetVerbosity(Log::Warning);
    // Turn off intraprocess delivery: it calls a reader in the same process directly on the sender's thread.
    eprosima::fastrtps::LibrarySettingsAttributes settings;
    settings.intraprocess_delivery = eprosima::fastrtps::INTRAPROCESS_OFF;
    eprosima::fastrtps::xmlparser::XMLProfileManager::library_settings(settings);
}

} // namespace

void v2xdds_PrepareLibrary() {
    static std::once_flag once;
    std::call_once(once, ConfigureLibrary);
    // Fast DDS starts its log thread at the first entry. Start the thread here, while the caller blocks the stop
    // signals, so that the thread never receives them. The consumer ignores entries of kind Info.
    Log::QueueLog("", {nullptr, 0, nullptr, nullptr}, Log::Info);
}

v2xdds_signalBlocker::v2xdds_signalBlocker() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGQUIT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, &m_previousMask);
}

v2xdds_signalBlocker::~v2xdds_signalBlocker() {
    pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr);
}
