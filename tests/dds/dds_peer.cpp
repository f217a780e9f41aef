// A process that reads a topic, for the tests of the DDS library. Prints each piece that its callback receives as a
// line, "LENGTH HASH". No role but "destroy" destroys its participant.
// usage: dds_peer DOMAIN SETTING read TOPIC
//        dds_peer DOMAIN SETTING exit FROM TO    reads FROM, floods TO, and returns from main after a while
//        dds_peer DOMAIN SETTING leave FROM TO   the same, but its first callback calls exit(7)
//        dds_peer DOMAIN SETTING destroy FROM TO the same as leave, while main waits in destroy_dds
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

#include "dds/payload.h"
#include "v2x/v2xdds.h"

namespace {

void* g_participant = nullptr;
std::atomic<bool> g_isReading{false};
int g_pause = 0; // milliseconds

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
    wait(g_pause);
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
        wait(1); // leaves processor time to the threads of Fast DDS
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        return 2;
    }
    g_participant = create_dds();
    const std::string role = argv[3];
    g_pause = role == "destroy" ? 300 : 0; // until main waits in destroy_dds
    declare(argv, argv[4], role == "read" || role == "exit" ? print : leave);
    const char* const to = argc > 5 ? argv[5] : nullptr;
    if (to != nullptr) {
        declare(argv, to, nullptr);
    }
    if (!dds_start(g_participant)) {
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
