// Makes fuzzing seeds for fuzz_json from files with frames in hex (tests/data/uper). Skips frames above 4096 bytes.
// Writes each other frame as JSON and as PER to FOLDER.
// usage: fuzz_json_seeds FOLDER FILE...
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "message_json.h"
#include "uper_frames.h"

int main(int argc, char** argv) {
    constexpr size_t MAX_FRAME = 4096;
    int count = 0;
    for (int i = 2; i < argc; i++) {
        for (const UperFrame& frame : uperFrames(argv[i])) {
            const msg::Decoded decoded = msg::DecodeFrame(frame.bytes);
            if (frame.bytes.size() > MAX_FRAME || decoded.message == nullptr) {
                continue;
            }
            std::string json;
            msg::AppendJson(*decoded.message, json);
            const auto path = std::filesystem::path(argv[1]) / std::to_string(count++);
            std::ofstream(path.string() + ".json") << json;
            std::ofstream(path.string() + ".per", std::ios::binary)
                << std::string(frame.bytes.begin(), frame.bytes.end());
        }
    }
    printf("fuzz_json_seeds: %d frames written\n", count);
    return count > 0 ? 0 : 1;
}
