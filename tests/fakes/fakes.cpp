#include "fakes.h"

namespace fakes {

std::map<std::string, std::variant<bool, int32_t, std::string>> cfgTree;

void reset() {
    resetLog();
    journal.clear();
    cfgTree.clear();
    now = 0;
    monotonic = 0;
    clockReads = 0;
    tasks.clear();
    maxTasks = SIZE_MAX;
    sent.clear();
    sockets.clear();
    socketResults.clear();
    socketStats.clear();
    ipcConf = IPC_DEFAULTS;
    onRequest = nullptr;
    replies.clear();
    ipcCfgInitResult = 0;
    ddsMatched.clear();
    ddsTopics.clear();
    ddsSent.clear();
    startCounting();
}

} // namespace fakes
