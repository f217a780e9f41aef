// A process that takes part in a topic, for the tests of the DDS library. What it takes it prints a piece a line, in
// the order of its callback: "LENGTH HASH". Ends with status 0 on SIGTERM. usage: dds_peer DOMAIN SETTING read TOPIC
//        dds_peer DOMAIN SETTING echo FROM TO              sends on what it takes, from within the callback
//        dds_peer DOMAIN SETTING write TOPIC SIZE...       one payload of each size, once a reader is there; then waits
//        dds_peer DOMAIN SETTING flood TOPIC THREADS       sends without end on so many threads
//        dds_peer DOMAIN SETTING leave TOPIC               calls exit(7) from its first callback
//        dds_peer DOMAIN SETTING exit TOPIC FROM           floods, reads and leaves main after a while without
//        destroying
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

void leave(void*, unsigned int) {
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

void awaitReader(const std::string& topic) {
    while (get_match_cnt(g_participant, topic.c_str()) < 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void flood(const std::string& topic) {
    const std::vector<uint8_t> bytes = payload(3000, 1);
    while (true) {
        dds_send(g_participant, topic.c_str(), bytes.data(), 3000);
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // else it is all that the library does
    }
}

void writeAll(const std::string& topic, char** sizes) {
    awaitReader(topic);
    uint8_t seed = 0;
    for (; *sizes != nullptr; sizes++) {
        const auto size = static_cast<uint32_t>(strtoul(*sizes, nullptr, 10));
        const std::vector<uint8_t> bytes = payload(size, seed++);
        if (dds_send(g_participant, topic.c_str(), bytes.data(), size) != 0) {
            exit(5);
        }
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
    } else if (role == "leave") {
        declare(domain, topic, leave, setting);
        start();
    } else if (role == "echo") {
        g_echoTopic = argv[5];
        declare(domain, topic, echo, setting);
        declare(domain, g_echoTopic, nullptr, setting);
        start();
    } else if (role == "write") {
        declare(domain, topic, nullptr, setting);
        start();
        writeAll(topic, argv + 5);
    } else if (role == "flood" || role == "exit") {
        declare(domain, topic, nullptr, setting);
        if (role == "exit") {
            declare(domain, argv[5], print, setting);
        }
        start();
        for (int i = 0; i < (role == "exit" ? 2 : atoi(argv[5])); i++) {
            std::thread(flood, topic).detach();
        }
        if (role == "exit") {
            awaitReader(topic);
            while (!g_isReading) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            return 0;
        }
    } else {
        return 2;
    }
    while (!g_isOver) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    destroy_dds(g_participant);
    return 0;
}
