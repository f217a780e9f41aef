// A process that reads a topic, for the tests of the DDS library. Prints each piece that its callback receives as a
// line, "LENGTH HASH". No role but "destroy" destroys its participant.
// usage: dds_peer DOMAIN SETTING read TOPIC
//        dds_peer DOMAIN SETTING exit FROM TO    reads FROM, floods TO, and returns from main after a while
//        dds_peer DOMAIN SETTING leave FROM TO   the same, but its first callback calls exit(7)
//        dds_peer DOMAIN SETTING destroy FROM TO the same as leave, while main waits in destroy_dds
#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <unistd.h>

#include "dds/payload.h"
#include "v2x/v2xdds.h"

namespace {

std::string g_role;
std::atomic<bool> g_isReading{false};

void take(void* data, unsigned int len) {
    g_isReading = true;
    printf("%s\n", describe(data, len).c_str());
    fflush(stdout);
    if (g_role == "leave" || g_role == "destroy") {
        usleep(g_role == "destroy" ? 300000 : 0); // until main waits in destroy_dds
        exit(7);
    }
}

void flood(void* participant, const char* topic) {
    const Bytes bytes(3000);
    while (true) {
        dds_send(participant, topic, bytes.data(), 3000);
        usleep(1000); // leaves processor time to the threads of Fast DDS
    }
}

} // namespace

int main(int argc, char** argv) {
    void* const participant = create_dds();
    g_role = argv[3];
    for (int i = 4; i < argc; i++) {
        dds_reg(participant, atoi(argv[1]), argv[i], i == 4 ? take : nullptr, 0);
        set_history_qos(participant, argv[i], atoi(argv[2]), 0);
    }
    dds_start(participant);
    while (g_role == "read") {
        pause();
    }
    std::thread(flood, participant, argv[5]).detach();
    std::thread(flood, participant, argv[5]).detach();
    while (g_role != "exit" || !g_isReading || get_match_cnt(participant, argv[5]) < 1) {
        if (g_role == "destroy" && g_isReading) {
            destroy_dds(participant);
        }
        usleep(5000);
    }
    usleep(100000);
    return 0;
}
