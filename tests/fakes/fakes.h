// The recording fakes of the platform libraries: what they received, and what they answer.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "bytes.h"
#include "counts.h"
#include "v2x/v2xdds.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace fakes {

// Sets everything below back to its initial state, and the counters' baseline to now.
void reset();

// ---- log: every tag is known except these
extern std::set<std::string> unknownTags;
void setLogLevel(int32_t level); // of every tag; 7 after a reset
void resetLog();
struct LogLine {
    std::string tag;
    int32_t level;
    std::string text; // the message alone, without place and time
    const v2xlog_site* site = nullptr;
    std::string function = {};
};
extern std::vector<LogLine> logLines;
// Lines with this text, under whatever tag.
std::vector<LogLine> logged(const std::string& text);
// Errors and warnings logged since the last call, each as "TAG level text".
std::vector<std::string> takeLog();

// ---- all calls that start something, in order, as short texts ("log.AddTag UDPA", "pub.UdpSocketInit QUOR_RECV_SG")
extern std::vector<std::string> journal;

// ---- cfg: the tree that every file holds; lists, groups and numbers are missing
extern std::map<std::string, std::variant<bool, int32_t, std::string>> cfgTree;

// ---- pub
extern uint64_t now;       // wall clock in microseconds
extern uint64_t monotonic; // microseconds
extern int clockReads;
struct Task {
    v2xpub_TaskInitPara_t para;
    void run() const { para.f_tskFunExec(para.mp_arg); }
};
extern std::vector<Task> tasks;
extern size_t maxTasks; // creating one more task fails with -3

struct Datagram {
    std::string socket;
    std::string ip; // for IPC sockets: the host's name
    uint16_t port;
    std::vector<uint8_t> bytes;
};
extern std::vector<Datagram> sent;
extern std::vector<v2xpub_SocketInitPara_t> sockets;               // opened, in order
extern std::map<std::string, int32_t> socketResults;               // by socket name; default 0
extern std::map<std::string, v2xpub_UdpSocketStats_t> socketStats; // of open sockets, by name

// Passes bytes to the receive callback of the socket of this name, in a buffer of exactly their size.
void receive(const std::string& socketName, const std::vector<uint8_t>& bytes, v2xpub_address_t sender = {});

// ---- ipc
inline constexpr v2x_ipc_config_t IPC_DEFAULTS = {20001, 20002, 20003, 20010, "127.0.0.1", "0.0.0.0"};
extern v2x_ipc_config_t ipcConf;
extern std::function<void()> onRequest;          // called at each request; empty after a reset
extern std::deque<std::vector<uint8_t>> replies; // for the next requests that wait; without one they get -4
extern int32_t ipcCfgInitResult;

// ---- dds: one participant; the journal holds its calls with their arguments ("dds.dds_reg 200 rsu/a/spat/up
// writer", "dds.set_history_qos rsu/a/spat/up 2 0", "dds.destroy_dds")
extern std::map<std::string, int32_t> ddsMatched; // matched readers once started, by topic; default 0
struct DdsTopic {
    std::string name;
    dds_RecvCallback callback; // null for a writer
};
extern std::vector<DdsTopic> ddsTopics; // declared, in order
struct DdsSample {
    std::string topic;
    std::vector<uint8_t> bytes;
};
extern std::vector<DdsSample> ddsSent; // as passed to dds_send

// Passes bytes to the topic's callback, in a buffer of exactly their size.
void ddsReceive(const std::string& topic, const std::vector<uint8_t>& bytes);

} // namespace fakes
