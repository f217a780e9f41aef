#include "fakes.h"

namespace fakes {

void reset() {
    resetLog();
    journal.clear();
    cfgTree.clear();
    cfgInitResult = 0;
    cfgOpenTrees = 0;
    now = 0;
    clockReads = 0;
    tasks.clear();
    maxTasks = SIZE_MAX;
    sent.clear();
    sockets.clear();
    socketResults.clear();
    socketStats.clear();
    onRequest = nullptr;
    replies.clear();
    ipcCfgInitResult = 0;
    ddsMatched.clear();
    ddsTopics.clear();
    ddsSent.clear();
    startCounting();
}

} // namespace fakes
