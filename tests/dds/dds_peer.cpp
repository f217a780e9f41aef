// A process that takes part in a topic, for the tests of the DDS library. What it takes it prints a piece a line, in
// the order of its callback: "LENGTH HASH". No role destroys its participant.
// usage: dds_peer DOMAIN SETTING read TOPIC
//        dds_peer DOMAIN SETTING exit FROM TO    reads and floods, and leaves main after a while
//        dds_peer DOMAIN SETTING leave FROM TO   the same, but calls exit(7) from its first callback, and main stays;
//                                                what is to run at exit takes its time to be registered
//        dds_peer DOMAIN SETTING destroy FROM TO the same, while main destroys the participant
//        dds_peer DOMAIN SETTING mute FROM TO    reads and floods; once stopped and continued it keeps its topics from
//                                                participants that it knew before
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
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

// Those to whom this process has sent something for them alone, and tells no topic any more once it is mute. For one
// other participant: what goes to several at a time passes.
class Mute {
public:
    static void begin(int /*signal*/) { s_isMute = true; }
    bool keepsBack(const Bytes& datagram) {
        constexpr size_t PREFIX = 12;
        // RTPS 2.3: a header of 20 bytes (8.3.3), INFO_DST (9.4.5.7), the writers of publications and subscriptions
        // (table 9.1).
        constexpr size_t DESTINATION = 24;
        if (datagram.size() <= DESTINATION + PREFIX || datagram[20] != 0x0E) {
            return false;
        }
        const std::lock_guard lock(m_mutex);
        const Bytes to(datagram.begin() + DESTINATION, datagram.begin() + DESTINATION + PREFIX);
        if (!s_isMute) {
            m_known.insert(to);
            return false;
        }
        const bool isAcknowledgement = datagram[DESTINATION + PREFIX] == 0x06; // ACKNACK (9.4.5.3), of others' topics
        return m_known.contains(to) && !isAcknowledgement &&
               (holds(datagram, hex("000003C2")) || holds(datagram, hex("000004C2")));
    }

private:
    static bool holds(const Bytes& datagram, const Bytes& part) {
        return std::search(datagram.begin(), datagram.end(), part.begin(), part.end()) != datagram.end();
    }

    static inline std::atomic<bool> s_isMute{false};
    std::mutex m_mutex;
    std::set<Bytes> m_known;
};

bool g_mayBeMute = false;

} // namespace

// The library's datagrams go through this one instead of the system's.
extern "C" ssize_t sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to, socklen_t size) {
    static Mute mute;
    const auto* const bytes = static_cast<const uint8_t*>(data);
    if (g_mayBeMute && mute.keepsBack(Bytes(bytes, bytes + length))) {
        return static_cast<ssize_t>(length);
    }
    return syscall(SYS_sendto, fd, data, length, flags, to, size);
}

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
    g_mayBeMute = role == "mute";
    signal(SIGCONT, Mute::begin);
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
