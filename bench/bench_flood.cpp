// Measures the effect of a flood of controller frames on the daemon: the latency of learner reports, the memory and the
// size of the log, without and with the flood. Then measures how soon the daemon handles a frame after the flood. A
// latency ends when the kernel receives the record, so that the time to read the records before it does not count.
// usage: bench_flood [SECONDS [FRAMES_PER_SECOND]]    default: 30 s each without and with 1000 frames a second
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <thread>

#include "frame_1743.h"
#include "unit.h"

namespace {

using Clock = std::chrono::system_clock; // the clock of the kernel's time stamps

constexpr int REPORTS_PER_SECOND = 50;
constexpr uint8_t LEARNER_PHASE = 31; // the simulated controller has no lamp of this phase

long readResidentKib(pid_t pid) {
    const std::string status = readFile("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find("VmRSS:");
    return at == std::string::npos ? 0 : strtol(status.c_str() + at + 6, nullptr, 10);
}

uintmax_t measureLog(const Unit& unit) {
    uintmax_t bytes = 0;
    for (const auto& file : std::filesystem::directory_iterator(unit.folder.path() + "/log")) {
        bytes += file.file_size();
    }
    return bytes;
}

double milliseconds(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

// Waits for a record whose first phase is `phaseId`. Returns the time from `start` until the kernel received the record
// in milliseconds, or -1 if no record arrives within 2 s.
double waitForRecord(const Unit& unit, uint8_t phaseId, Clock::time_point start) {
    constexpr size_t FIRST_PHASE = 41;
    uint8_t bytes[8192];
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(timespec))];
    iovec part = {bytes, sizeof bytes};
    for (;;) {
        msghdr message = {};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        const ssize_t length = recvmsg(unit.stack.fd(), &message, 0);
        if (length < 0) {
            return -1;
        }
        const cmsghdr* const head = CMSG_FIRSTHDR(&message);
        if (head != nullptr && length > static_cast<ssize_t>(FIRST_PHASE) && bytes[FIRST_PHASE] == phaseId) {
            timespec stamp;
            memcpy(&stamp, CMSG_DATA(head), sizeof stamp);
            const auto time = std::chrono::seconds(stamp.tv_sec) + std::chrono::nanoseconds(stamp.tv_nsec);
            return milliseconds(time - start.time_since_epoch());
        }
    }
}

void measure(Unit& unit, const char* name, int seconds) {
    std::vector<double> latencies;
    int lost = 0;
    const auto begin = Clock::now();
    for (int i = 0; i < seconds * REPORTS_PER_SECOND; i++) {
        std::this_thread::sleep_until(begin + std::chrono::microseconds(1000000LL * i / REPORTS_PER_SECOND));
        const Clock::time_point start = Clock::now();
        unit.learner.sendTo(unit.reportPort, {0xFE, 0xFE, 0x10, 0, 10, 0, 1, 0, LEARNER_PHASE, 1, 9, 0, 0, 0, 0});
        const double latency = waitForRecord(unit, LEARNER_PHASE, start);
        if (latency < 0) {
            lost++;
        } else {
            latencies.push_back(latency);
        }
    }
    std::sort(latencies.begin(), latencies.end());
    const auto quantile = [&](double share) {
        return latencies.empty() ? -1
                                 : latencies[static_cast<size_t>(share * static_cast<double>(latencies.size() - 1))];
    };
    printf(
        "%-6s %d s: %zu reports, %d lost, p50 %.3f ms, p99 %.3f ms, longest %.3f ms; daemon %ld KiB, log %ju bytes\n",
        name, seconds, latencies.size(), lost, quantile(0.5), quantile(0.99), quantile(1),
        readResidentKib(unit.daemon->pid()), measureLog(unit));
    fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? atoi(argv[1]) : 30;
    const double rate = argc > 2 ? atof(argv[2]) : 1000;
    Unit unit;
    unit.startAndWaitReady();
    const timeval timeout = {2, 0};
    setsockopt(unit.stack.fd(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    const int isOn = 1;
    setsockopt(unit.stack.fd(), SOL_SOCKET, SO_TIMESTAMPNS, &isOn, sizeof isOn);
    measure(unit, "quiet", seconds);

    unit.startDevice("controller", rate, {"--seconds", std::to_string(seconds)});
    measure(unit, "flood", seconds);
    const std::string summary = unit.endSimulator("controller", 0);
    const auto floodEnd = Clock::now();
    while (unit.receiveRecord(600).has_value()) { // discards the records of the frames that the daemon has queued
    }
    const UdpPeer other;
    const auto sent = Clock::now();
    other.sendTo(unit.framePort, frame_1743::frame(frame_1743::payload({{90, {{1, 0x20, 9}}}})));
    const double recovery = waitForRecord(unit, 2, sent);
    printf("flood sent %s", summary.c_str());
    printf("after the flood: last record within %.0f ms; a new frame's record %.0f ms after the frame\n",
           milliseconds(sent - floodEnd) - 600, recovery);
    return recovery < 0 ? 1 : 0;
}
