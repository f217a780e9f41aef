// Measures the latency from a learner report to the resulting datagram, back to back and at 200 reports a second, and
// the sustained rate. The baseline is a loop that only receives a datagram and sends a ready-made datagram of the
// daemon's size. A second daemon has a sender filter of 16 entries, of which the last accepts the learner. Three more
// daemons have a control socket: one has no client, one has eight clients that read each event, and one has eight
// clients that never read. The daemons and the baseline alternate, so that other load on the machine affects all.
// usage: bench_loopback [ROUNDS]    default: 10
#include <algorithm>
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "unit.h"
#include "watchers.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int LATENCY_SAMPLES = 2000; // per round
constexpr int PACED_SAMPLES = 400;    // per round
constexpr auto PACED_PERIOD = std::chrono::microseconds(5000);
constexpr int RATE_DATAGRAMS = 40000; // per round
constexpr int WINDOW = 64;            // unanswered reports during the rate measurement; few enough to lose none
constexpr int WARM_UP = 500;
constexpr int FILTER_ENTRIES = 16; // the maximum

struct Series {
    const char* name;
    const Unit& unit; // sends the reports and receives the datagrams
    pid_t pid;
    uint16_t port;           // receives the reports
    size_t baseline = 0;     // index of the series that the ratio refers to
    pid_t reader = getpid(); // reads the events
    std::vector<double> latencies{};
    std::vector<double> paced{}; // latencies
    std::vector<double> rates{};
};

// The processors of this process (`peers`) and of the process under test (`loop`). Without pinning, the figures depend
// on the scheduler. With two processors, the figures include the wake-up of an idle processor.
struct Placement {
    const char* name;
    int peers;
    int loop;
};

constexpr Placement PLACEMENTS[] = {{"one processor", 0, 0}, {"two processors", 0, 1}};

void pin(pid_t pid, int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<size_t>(processor), &set);
    for (const auto& thread : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        if (sched_setaffinity(std::stoi(thread.path().filename()), sizeof set, &set) != 0) {
            perror("bench_loopback: cannot bind a thread to a processor");
            exit(1);
        }
    }
}

// Makes a report of eight phases, as of a four-arm intersection.
Bytes makeReport() {
    Bytes bytes = hex("FEFE10 003B 000800");
    for (uint8_t i = 1; i <= 8; i++) {
        bytes.insert(bytes.end(), {i, static_cast<uint8_t>(i % 3 + 1), 15, 0, 0, 0, 0});
    }
    return bytes;
}

// Receives datagrams and answers each with a datagram of `length` bytes to `stackPort`: the least that any converter
// does. Runs in a child process, which ends when its parent ends.
[[noreturn]] void runBareLoop(int fd, uint16_t stackPort, size_t length) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    sockaddr_in target = {};
    target.sin_family = AF_INET;
    target.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    target.sin_port = htons(stackPort);
    std::vector<uint8_t> buffer(65536);
    for (;;) {
        if (recv(fd, buffer.data(), buffer.size(), 0) > 0) {
            sendto(fd, buffer.data(), length, 0, reinterpret_cast<const sockaddr*>(&target), sizeof target);
        }
    }
}

// Opens a UDP socket on a free port of 127.0.0.1 and writes the port to *port.
int bindSocket(uint16_t* port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        perror("bench_loopback: cannot bind a UDP socket to 127.0.0.1");
        exit(1);
    }
    *port = ntohs(address.sin_port);
    return fd;
}

// Receives one record. Ignores the daemon's requests for SPAT, which arrive at the same socket.
void receiveOne(const Unit& unit) {
    constexpr ssize_t REQUEST_SIZE = 28;
    uint8_t buffer[8192];
    ssize_t length = 0;
    do {
        length = recv(unit.stack.fd(), buffer, sizeof buffer, 0);
    } while (length == REQUEST_SIZE);
    if (length <= 0) {
        fprintf(stderr, "bench_loopback: no datagram within 2 s\n");
        exit(1);
    }
}

// Returns the latency of one report in microseconds.
double measureOne(const Series& series, const Bytes& bytes) {
    const auto start = Clock::now();
    series.unit.learner.sendTo(series.port, bytes);
    receiveOne(series.unit);
    return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
}

void measureLatency(Series& series, const Bytes& bytes, int samples) {
    for (int i = 0; i < samples; i++) {
        series.latencies.push_back(measureOne(series, bytes));
    }
}

// Each process gets its reports at an interval of PACED_PERIOD. The processes take turns.
void measurePaced(std::vector<Series>& all, const Bytes& bytes) {
    auto next = Clock::now();
    for (int i = 0; i < PACED_SAMPLES; i++) {
        for (Series& series : all) {
            std::this_thread::sleep_until(next += PACED_PERIOD / all.size());
            series.paced.push_back(measureOne(series, bytes));
        }
    }
}

void measureRate(Series& series, const Bytes& bytes) {
    const auto start = Clock::now();
    for (int i = 0; i < RATE_DATAGRAMS + WINDOW; i++) {
        if (i < RATE_DATAGRAMS) {
            series.unit.learner.sendTo(series.port, bytes);
        }
        if (i >= WINDOW) {
            receiveOne(series.unit);
        }
    }
    series.rates.push_back(RATE_DATAGRAMS / std::chrono::duration<double>(Clock::now() - start).count());
}

double quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values.at(static_cast<size_t>(share * static_cast<double>(values.size() - 1)));
}

void print(const Series& series) {
    printf("  %-18s  p50 %7.1f us   p99 %7.1f us   paced p50 %7.1f us   %8.0f datagrams/s\n", series.name,
           quantile(series.latencies, 0.5), quantile(series.latencies, 0.99), quantile(series.paced, 0.5),
           quantile(series.rates, 0.5));
}

void printRatio(const Series& daemon, const Series& baseline) {
    printf("  ratio to %-9s  p50 %7.2f      p99 %7.2f      paced p50 %7.2f      rate %7.2f\n", baseline.name,
           quantile(daemon.latencies, 0.5) / quantile(baseline.latencies, 0.5),
           quantile(daemon.latencies, 0.99) / quantile(baseline.latencies, 0.99),
           quantile(daemon.paced, 0.5) / quantile(baseline.paced, 0.5),
           quantile(daemon.rates, 0.5) / quantile(baseline.rates, 0.5));
}

// The first entry of `all` is the bare loop.
void measure(const Placement& placement, std::vector<Series> all, int rounds) {
    const Bytes bytes = makeReport();
    pin(getpid(), placement.peers);
    for (Series& series : all) {
        pin(series.pid, placement.loop);
        pin(series.reader, placement.peers);
        measureLatency(series, bytes, WARM_UP);
        series.latencies.clear();
    }
    for (int round = 0; round < rounds; round++) {
        for (Series& series : all) {
            measureLatency(series, bytes, LATENCY_SAMPLES);
            measureRate(series, bytes);
        }
        measurePaced(all, bytes);
    }
    printf("%s, %d rounds\n", placement.name, rounds);
    print(all.front());
    for (size_t i = 1; i < all.size(); i++) {
        print(all[i]);
        printRatio(all[i], all[all[i].baseline]);
    }
}

// Starts the daemon and sends one report. Returns the length of the resulting datagram.
size_t startDaemon(Unit& unit) {
    unit.startAndWaitReady();
    const timeval timeout = {2, 0};
    setsockopt(unit.stack.fd(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    unit.learner.sendTo(unit.reportPort, makeReport());
    return unit.receiveRecord().value_or(Bytes(1)).size();
}

std::string makeFilter() {
    std::string text = "OnlyFrom = (";
    for (int i = 1; i < FILTER_ENTRIES; i++) {
        text += "\"10.0.0." + std::to_string(i) + "\", ";
    }
    return text + "\"127.0.0.0/24\");";
}

std::string controlPath(const Unit& unit) {
    return unit.folder.path() + "/control";
}

// Starts a daemon with a control socket. `suffix` makes its topics differ from those of the other daemons.
void startWithControl(Unit& unit, const char* suffix) {
    unit.device += suffix;
    unit.moreGroups = "Control = { Path = \"" + controlPath(unit) + "\"; };";
    startDaemon(unit);
}

// Returns a series of a daemon; the baseline is the series with this index.
Series seriesOf(const char* name, const Unit& unit, size_t baseline) {
    return {name, unit, unit.daemon->pid(), unit.reportPort, baseline};
}

} // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? atoi(argv[1]) : 10;
    Unit unit;
    const size_t length = startDaemon(unit);
    Unit filtered;
    filtered.device += "F";
    filtered.learnerKeys += makeFilter();
    startDaemon(filtered);
    Unit unwatched;
    startWithControl(unwatched, "C");
    Unit watched;
    startWithControl(watched, "W");
    const Watchers watchers(controlPath(watched), true);
    Unit unread;
    startWithControl(unread, "U");
    const Watchers silentWatchers(controlPath(unread), false);

    uint16_t barePort = 0;
    const int fd = bindSocket(&barePort);
    const pid_t loop = fork();
    if (loop == 0) {
        runBareLoop(fd, unit.stack.port(), length);
    }
    // A real peer runs on another machine. SCHED_BATCH keeps this process from preempting the process under test.
    const sched_param param = {};
    sched_setscheduler(0, SCHED_BATCH, &param);
    printf("each report has %zu bytes, each datagram %zu bytes\n", makeReport().size(), length);
    for (const Placement& placement : PLACEMENTS) {
        if (placement.loop < sysconf(_SC_NPROCESSORS_ONLN)) {
            Series watchedSeries = seriesOf("8 watchers read", watched, 1);
            watchedSeries.reader = watchers.pid();
            measure(placement,
                    {{"bare", unit, loop, barePort},
                     seriesOf("daemon", unit, 0),
                     seriesOf("daemon, filter", filtered, 0),
                     seriesOf("control socket", unwatched, 1),
                     watchedSeries,
                     seriesOf("8 never read", unread, 1)},
                    rounds);
        }
    }
    kill(loop, SIGKILL);
    waitpid(loop, nullptr, 0);
    return 0;
}
