// A process that takes part in a topic, for the tests of the DDS library. What it takes it prints a piece a line, in
// the order of its callback: "LENGTH HASH". Ends with status 0 on SIGTERM. usage: dds_peer DOMAIN SETTING read TOPIC
//        dds_peer DOMAIN SETTING echo FROM TO              sends on what it takes, from within the callback
//        dds_peer DOMAIN SETTING exit TO FROM              floods, reads and leaves main after a while without
//        destroying dds_peer DOMAIN SETTING leave TO FROM             floods, and calls exit(7) from its first callback
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "dds/payload.h"
#include "v2x/v2xdds.h"
#include "v2x/v2xlog.h"

namespace {

void* g_participant = nullptr;
std::string g_echoTopic;

std::atomic<bool> g_isReading{false};

void print(void* data, unsigned int len) {
    g_isReading = true;
    printf("%s\n", describe(data, len).c_str());
    fflush(stdout);
}

void echo(void* data, unsigned int len) {
    print(data, len);
    dds_send(g_participant, g_echoTopic.c_str(), data, len);
}

void leave(void* data, unsigned int len) {
    print(data, len);
    exit(7);
}

void declare(int32_t domain, const std::string& topic, dds_RecvCallback callback, int32_t setting) {
    if (!dds_reg(g_participant, domain, topic.c_str(), callback, 0) ||
        !set_history_qos(g_participant, topic.c_str(), setting, 0)) {
        exit(3);
    }
}

void start() {
    if (!set_white_list_iface(g_participant, "127.0.0.1") || !dds_start(g_participant)) {
        exit(4);
    }
}

void flood(const std::string& topic) {
    const Bytes bytes(3000);
    while (true) {
        dds_send(g_participant, topic.c_str(), bytes.data(), 3000);
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // else it is all that the library does
    }
}

std::atomic<bool> g_isOver{false};

} // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        return 2;
    }
    signal(SIGTERM, [](int) { g_isOver = true; });
    const int32_t domain = atoi(argv[1]);
    const int32_t setting = atoi(argv[2]);
    const std::string role = argv[3];
    const std::string topic = argv[4];
    if (const char* path = getenv("DDS_PEER_LOG")) {
        V2X_LOGHANDLE tag = nullptr;
        v2xlog_Init(path, "SDDS", 1, 0, 0);
        v2xlog_AddTag("SDDS", &tag);
    }
    g_participant = create_dds();
    if (role == "read") {
        declare(domain, topic, print, setting);
        start();
    } else if (role == "echo") {
        g_echoTopic = argv[5];
        declare(domain, topic, echo, setting);
        declare(domain, g_echoTopic, nullptr, setting);
        start();
    } else if (role == "exit" || role == "leave") {
        declare(domain, topic, nullptr, setting);
        declare(domain, argv[5], role == "exit" ? print : leave, setting);
        start();
        for (int i = 0; i < 2; i++) {
            std::thread(flood, topic).detach();
        }
        while (!g_isReading || get_match_cnt(g_participant, topic.c_str()) < 1) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        return 0;
    } else {
        return 2;
    }
    while (!g_isOver) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    destroy_dds(g_participant);
    return 0;
}
