// Measures v2x_msg on a file of frames in hex, and the bare decoder on the same frames in memory. The frames are those
// of the tests with up to 300 bytes, of all message types, again and again. usage: bench_msg [MEGABYTES]    size of the
// file in hex, default 20
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "common/hex.h"
#include "temp_folder.h"
#include "uper_frames.h"
#include "v2x/v2xmsgset.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t LONGEST_FRAME = 300; // bytes

[[noreturn]] void fail(const std::string& what) {
    fprintf(stderr, "bench_msg: %s\n", what.c_str());
    exit(1);
}

double secondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::vector<Bytes> readFrames() {
    std::vector<Bytes> frames;
    for (const char* const name : {"captured", "bsm", "map", "rsm", "spat", "rsi", "msgFrameExt"}) {
        for (const UperFrame& frame : uperFrames(V2X_TEST_DATA "/uper/" + std::string(name) + ".txt")) {
            if (frame.bytes.size() <= LONGEST_FRAME) {
                frames.push_back(frame.bytes);
            }
        }
    }
    return frames;
}

// Writes lines of hex up to the size, and returns their number.
size_t writeFrames(const std::string& path, const std::vector<Bytes>& frames, size_t size) {
    std::ofstream file(path);
    size_t count = 0;
    for (size_t written = 0; written < size; ++count) {
        const std::string line = tools::ToHex(frames[count % frames.size()]) + "\n";
        file << line;
        written += line.size();
    }
    return count;
}

// Decodes `count` frames and releases them. Returns frames per second.
double measureDecoder(const std::vector<Bytes>& frames, size_t count) {
    const auto start = Clock::now();
    for (size_t i = 0; i < count; i++) {
        const Bytes& frame = frames[i % frames.size()];
        void* message = nullptr;
        if (asn_decode(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &message, frame.data(),
                       frame.size())
                .code != RC_OK) {
            fail("a frame cannot be decoded");
        }
        ASN_STRUCT_FREE(asn_DEF_MessageFrame, message);
    }
    return static_cast<double>(count) / secondsSince(start);
}

struct Run {
    double seconds;
    long memory; // largest resident set in KiB
};

// Runs v2x_msg with the arguments, and writes its output to the file.
Run run(std::vector<std::string> arguments, const std::string& output) {
    arguments.insert(arguments.begin(), V2X_BIN "/v2x_msg");
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const auto start = Clock::now();
    pid_t pid = 0;
    int status = 1;
    rusage usage{};
    if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0 ||
        wait4(pid, &status, 0, &usage) != pid || status != 0) {
        fail(arguments[1] + " failed");
    }
    posix_spawn_file_actions_destroy(&actions);
    return {secondsSince(start), usage.ru_maxrss};
}

} // namespace

int main(int argc, char** argv) {
    const size_t megabytes = argc > 1 ? strtoul(argv[1], nullptr, 10) : 20;
    const std::vector<Bytes> frames = readFrames();
    const TempFolder folder;
    const std::string hexFile = folder.path() + "/frames.hex";
    const size_t count = writeFrames(hexFile, frames, megabytes * 1000000);
    const double bare = measureDecoder(frames, count);
    printf("%zu frames, %.1f MB of hex\n%-16s %10s %10s %8s %10s\n%-16s %10.0f %10s %8s\n", count,
           static_cast<double>(std::filesystem::file_size(hexFile)) / 1e6, "", "frames/s", "MB/s in", "to bare",
           "memory/MiB", "bare decoder", bare, "", "1.00");
    const struct {
        const char* name;
        std::vector<std::string> arguments;
        std::string input;
        std::string output;
    } rows[] = {
        {"info", {"info"}, hexFile, "/dev/null"},
        {"info --summary", {"info", "--summary"}, hexFile, "/dev/null"},
        {"decode", {"decode"}, hexFile, folder.path() + "/frames.xml"},
        {"decode --json", {"decode", "--json"}, hexFile, folder.path() + "/frames.json"},
        {"encode XER", {"encode"}, folder.path() + "/frames.xml", "/dev/null"},
        {"encode JSON", {"encode"}, folder.path() + "/frames.json", "/dev/null"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = row.arguments;
        arguments.push_back(row.input);
        const Run result = run(arguments, row.output);
        const double rate = static_cast<double>(count) / result.seconds;
        const double input = static_cast<double>(std::filesystem::file_size(row.input)) / 1e6;
        printf("%-16s %10.0f %10.1f %8.2f %10.1f\n", row.name, rate, input / result.seconds, rate / bare,
               static_cast<double>(result.memory) / 1024);
    }
    return 0;
}
