// A process that takes part in a topic, for the tests of the DDS library. What it takes it prints a piece a line, in
// the order of its callback: "LENGTH HASH". No role destroys its participant.
// usage: dds_peer DOMAIN SETTING read TOPIC
//        dds_peer DOMAIN SETTING exit FROM TO    reads and floods, and leaves main after a while
//        dds_peer DOMAIN SETTING leave FROM TO   the same, but calls exit(7) from its first callback, and main stays;
//                                                what is to run at exit takes its time to be registered
//        dds_peer DOMAIN SETTING destroy FROM TO the same, while main destroys the participant
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "dds/payload.h"
#include "v2x/v2xdds.h"
#include "v2x/v2xlog.h"

namespace {

void* g_participant = nullptr;
std::atomic<bool> g_isReading{false};
bool g_isLeaving = false;
std::atomic<bool> g_isHeldUp{false};

void print(void* data, unsigned int len) {
    g_isReading = true;
    printf("%s\n", describe(data, len).c_str());
    fflush(stdout);
}

void wait(int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

void leave(void* data, unsigned int len) {
    print(data, len);
    exit(g_isHeldUp ? 7 : 8);
}

void leaveLate(void* data, unsigned int len) {
    print(data, len);
    wait(300); // long enough for main to begin to destroy
    exit(7);
}

void declare(char** arguments, const char* topic, dds_RecvCallback callback) {
    if (!dds_reg(g_participant, atoi(arguments[1]), topic, callback, 0) ||
        !set_history_qos(g_participant, topic, atoi(arguments[2]), 0)) {
        exit(3);
    }
}

void flood(const char* topic) {
    const Bytes bytes(3000);
    while (true) {
        dds_send(g_participant, topic, bytes.data(), 3000);
        wait(1); // else it is all that the library does
    }
}

} // namespace

// The linker puts this in the place of atexit.
extern "C" int __real_atexit(void (*function)());
extern "C" int __wrap_atexit(void (*function)()) {
    if (g_isLeaving) {
        wait(300); // long enough for a first sample
        g_isHeldUp = true;
    }
    return __real_atexit(function);
}

int main(int argc, char** argv) {
    if (argc < 5) {
        return 2;
    }
    if (const char* path = getenv("DDS_PEER_LOG")) {
        V2X_LOGHANDLE tag = nullptr;
        v2xlog_Init(path, "SDDS", 1, 0, 0);
        v2xlog_AddTag("SDDS", &tag);
    }
    g_participant = create_dds();
    const std::string role = argv[3];
    g_isLeaving = role == "leave";
    declare(argv, argv[4], g_isLeaving ? leave : role == "destroy" ? leaveLate : print);
    const char* const to = argc > 5 ? argv[5] : nullptr;
    if (to != nullptr) {
        declare(argv, to, nullptr);
    }
    if (!set_white_list_iface(g_participant, "127.0.0.1") || !dds_start(g_participant)) {
        return 4;
    }
    while (to == nullptr) {
        wait(1000);
    }
    std::thread(flood, to).detach();
    std::thread(flood, to).detach();
    while (role != "exit" || !g_isReading || get_match_cnt(g_participant, to) < 1) {
        if (role == "destroy" && g_isReading) {
            destroy_dds(g_participant);
        }
        wait(5);
    }
    wait(100);
    return 0;
}
