// What the recording stand-ins of the platform libraries saw, and what they are told to answer.
//
// The daemon's modules keep process-wide state, so each test case runs in a process of its own (as ctest runs them).
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "bytes.h"
#include "counts.h"
#include "v2x/v2xdds.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xpub.h"

namespace fakes {

// ---- log: every tag is known but these
extern std::set<std::string> unknownTags;
extern int32_t logInitResult;
extern int32_t logLevel; // of tags that are looked up from now on; 7 at first
struct LogLine {
    std::string tag;
    int32_t level;
    std::string text; // the message alone, without place and time
};
extern std::vector<LogLine> logLines;
// Lines with this text, under whatever tag.
std::vector<LogLine> logged(const std::string& text);
// Errors and warnings logged since the last call, each as "TAG level text".
std::vector<std::string> takeLog();

// ---- all calls that start something, in order, as short texts ("log.AddTag UDPA", "pub.UdpSocketInit QUOR_RECV_SG")
extern std::vector<std::string> journal;

// ---- cfg: the tree that every file holds
extern std::map<std::string, std::variant<bool, int32_t, std::string>> cfgTree;
extern int32_t cfgInitResult;
extern int32_t cfgOpenTrees;

// ---- pub
extern uint64_t now; // wall clock in microseconds
struct Task {
    v2xpub_TaskInitPara_t para;
    void run() const { para.f_tskFunExec(para.mp_arg); }
};
extern std::vector<Task> tasks;
extern std::map<std::string, int32_t> taskResults; // by task name; 0 where absent
extern size_t taskRoom;                            // tasks that can exist; the next one fails with -3

struct Datagram {
    std::string socket;
    std::string ip; // for IPC sockets: the host's name
    uint16_t port;
    std::vector<uint8_t> bytes;
};
extern std::vector<Datagram> sent;
extern std::vector<v2xpub_SocketInitPara_t> sockets;               // opened, in order
extern std::map<std::string, int32_t> socketResults;               // by socket name; 0 where absent
extern std::map<std::string, v2xpub_UdpSocketStats_t> socketStats; // what is told of open sockets, by name

// Hands bytes to the receive callback of the socket of this name, from a buffer that ends where they end.
void receive(const std::string& socketName, const std::vector<uint8_t>& bytes);

// ---- ipc
extern std::deque<std::vector<uint8_t>> replies; // to the next requests that wait; without one they get -4

// ---- dds: one participant; its calls stand in the journal with their arguments ("dds.dds_reg 200 rsu/a/spat/up
// writer", "dds.set_history_qos rsu/a/spat/up 2 0", "dds.destroy_dds null")
extern bool ddsCreateFails;
extern std::map<std::string, bool> ddsRegFails;   // by topic; false where absent
extern std::map<std::string, int32_t> ddsMatched; // readers matched once started, by topic; 0 where absent
struct DdsTopic {
    std::string name;
    dds_RecvCallback callback; // null for a writer
    int32_t dataType;
};
extern std::vector<DdsTopic> ddsTopics; // declared, in order
struct DdsSample {
    std::string topic;
    std::vector<uint8_t> bytes;
};
extern std::vector<DdsSample> ddsSent; // whole, as they were handed to dds_send

// Hands bytes to the topic's callback, from a buffer that ends where they end.
void ddsReceive(const std::string& topic, const std::vector<uint8_t>& bytes);

using ::hex;

} // namespace fakes
