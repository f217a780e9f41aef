#include "replay.h"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <string_view>

namespace sim {
namespace {

constexpr int64_t MAX_TIME = 1'000'000'000'000;
constexpr std::string_view BLANKS = " \t\r";

// Takes the next word of the line; empty at its end.
std::string_view TakeWord(std::string_view& line) {
    const size_t begin = std::min(line.find_first_not_of(BLANKS), line.size());
    const size_t end = std::min(line.find_first_of(BLANKS, begin), line.size());
    const std::string_view word = line.substr(begin, end - begin);
    line.remove_prefix(end);
    return word;
}

std::chrono::milliseconds ParseTime(std::string_view word) {
    int64_t value = 0;
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc{} || stop != word.data() + word.size() || value < 0 || value > MAX_TIME) {
        throw std::invalid_argument("'" + std::string(word) + "' is not a time in milliseconds");
    }
    return std::chrono::milliseconds(value);
}

void AppendHex(std::vector<uint8_t>& bytes, std::string_view word) {
    if (word.size() % 2 != 0) {
        throw std::invalid_argument("'" + std::string(word) + "' has an odd number of hex digits");
    }
    for (size_t at = 0; at < word.size(); at += 2) {
        uint8_t byte = 0;
        const char* const digits = word.data() + at;
        if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
            throw std::invalid_argument("'" + std::string(digits, 2) + "' is not a byte in hex");
        }
        bytes.push_back(byte);
    }
}

// Reads one line that is not empty.
ReplayDatagram ParseLine(std::string_view line) {
    ReplayDatagram datagram{ParseTime(TakeWord(line)), {}};
    for (std::string_view word = TakeWord(line); !word.empty(); word = TakeWord(line)) {
        AppendHex(datagram.bytes, word);
    }
    if (datagram.bytes.empty()) {
        throw std::invalid_argument("no bytes after the time");
    }
    if (datagram.bytes.size() > MAX_DATAGRAM) {
        throw std::invalid_argument(std::to_string(datagram.bytes.size()) + " bytes; a datagram has at most " +
                                    std::to_string(MAX_DATAGRAM));
    }
    return datagram;
}

} // namespace

std::vector<ReplayDatagram> ReadReplay(std::istream& in, const std::string& name) {
    std::vector<ReplayDatagram> datagrams;
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
        const std::string_view content = std::string_view(line).substr(0, line.find('#'));
        if (content.find_first_not_of(BLANKS) == std::string_view::npos) {
            continue;
        }
        try {
            ReplayDatagram datagram = ParseLine(content);
            if (!datagrams.empty() && datagram.time < datagrams.back().time) {
                throw std::invalid_argument("the time goes back");
            }
            datagrams.push_back(std::move(datagram));
        } catch (const std::invalid_argument& reason) {
            throw std::runtime_error(name + ":" + std::to_string(number) + ": " + reason.what());
        }
    }
    if (in.bad()) {
        throw std::runtime_error(name + ": cannot be read: " + std::strerror(errno));
    }
    if (datagrams.empty()) {
        throw std::runtime_error(name + ": holds no datagram");
    }
    return datagrams;
}

std::vector<ReplayDatagram> ReadReplayFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        throw std::runtime_error(path + ": cannot be opened: " + std::strerror(errno));
    }
    return ReadReplay(in, path);
}

std::chrono::nanoseconds ReplayRound(const std::vector<ReplayDatagram>& datagrams) {
    constexpr std::chrono::nanoseconds WITHOUT_GAP = std::chrono::seconds(1);
    const std::chrono::nanoseconds last = datagrams.back().time;
    const std::chrono::nanoseconds span = last - datagrams.front().time;
    const auto gaps = static_cast<int64_t>(datagrams.size()) - 1;
    return last + (span.count() > 0 ? span / gaps : WITHOUT_GAP);
}

} // namespace sim
