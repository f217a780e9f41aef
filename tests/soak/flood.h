// What a flood sends, and by which of the daemon's counts it is accounted for.
#pragma once

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bytes.h"
#include "unit.h"
#include "watch.h"

// Good streams beside every flood; each makes a record of its own.
struct Stream {
    const char* name;
    double rate; // a second
    Bytes input;
    std::vector<std::string> record; // as recordOf() tells it
};
inline constexpr size_t STREAMS = 3;
extern const Stream GOOD_STREAMS[STREAMS]; // a report, a frame, a document

enum class Kind { good, damaged, random };
inline constexpr const char* KINDS[] = {"good", "damaged", "random"};

// The cloud's topics, written from here.
class Cloud {
public:
    explicit Cloud(const std::string& device);
    ~Cloud();
    Cloud(const Cloud&) = delete;
    Cloud& operator=(const Cloud&) = delete;
    bool waitMatched() const;
    void sendDocument(const Bytes& bytes) const; // waits where the reader is behind
    void sendStatus(const Bytes& bytes) const;

private:
    void send(const std::string& topic, const Bytes& bytes) const;
    void* m_dds;
    std::string m_down;
};

// Reads the stack application's socket: records by their content, and where requests come from.
class ArrivedRecords {
public:
    explicit ArrivedRecords(const Peer& stack);
    ~ArrivedRecords();
    ArrivedRecords(const ArrivedRecords&) = delete;
    ArrivedRecords& operator=(const ArrivedRecords&) = delete;
    uint64_t all() const { return m_all; }
    uint64_t good(size_t stream) const { return m_good[stream]; }
    uint16_t requestPort() const { return m_requestPort; } // 0 until one has come

private:
    void run();
    const int m_fd;
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_all{0};
    std::atomic<uint64_t> m_good[STREAMS]{};
    std::atomic<uint16_t> m_requestPort{0};
    std::thread m_thread;
};

// A daemon with what floods it and what its records reach.
struct FloodDesk {
    explicit FloodDesk(const Cloud& cloudToUse) : cloud(cloudToUse) { unit.corrections = "SpatDown = true;"; }
    const Cloud& cloud;
    Unit unit;
    Peer flooder;
    ArrivedRecords records{unit.stack};
};

// Where a flood goes in.
struct Inlet {
    const char* name;
    double nominal; // inputs a second
    Bytes good;
    void (*send)(FloodDesk& desk, const Bytes& input);
    int stream;                    // the good stream that goes in here, too; NONE
    std::vector<std::string> came; // counts that together are what was sent; of a socket, the last is the kernel's
    // Counts of which the ones on the left and those on the right are equal in sum.
    std::vector<std::pair<std::vector<std::string>, std::vector<std::string>>> balances;
    std::vector<std::string> bytes; // counts that together are the bytes that were sent, where there are such

    static constexpr int NONE = -1;
    bool isSocket() const { return came.back().ends_with(".kernel_drops"); }
};
extern const std::vector<Inlet> INLETS;

// An input of a kind.
Bytes input(const Inlet& inlet, Kind kind, std::mt19937& chance);

uint64_t sum(const Counts& counts, const std::vector<std::string>& names);
