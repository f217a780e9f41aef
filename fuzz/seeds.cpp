// Makes seeds from the frames of tests/data/uper: each frame of at most 4096 bytes as it is, and as text.
// usage: fuzz_seeds FRAMES_FOLDER TEXTS_FOLDER FILE...
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "v2x/v2xmsgset.h"

namespace {

constexpr size_t MAX_FRAME = 4096;

std::string bytesOf(const std::string& digits) {
    std::string bytes;
    for (size_t at = 0; at + 2 <= digits.size(); at += 2) {
        unsigned byte = 0;
        std::from_chars(digits.data() + at, digits.data() + at + 2, byte, 16);
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

std::string textOf(const std::string& frame) {
    void* value = nullptr;
    std::string text(1 << 20, '\0');
    asn_decode(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &value, frame.data(), frame.size());
    const asn_enc_rval_t result =
        asn_encode_to_buffer(nullptr, ATS_CANONICAL_XER, &asn_DEF_MessageFrame, value, text.data(), text.size());
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, value);
    text.resize(result.encoded < 0 ? 0 : static_cast<size_t>(result.encoded));
    return text;
}

// A frame's digits stand on one or more lines "hex DIGITS".
std::vector<std::string> framesOf(const std::filesystem::path& path) {
    std::vector<std::string> frames;
    std::ifstream file(path);
    bool open = false;
    for (std::string line; std::getline(file, line);) {
        const bool isHex = line.starts_with("hex ");
        if (isHex && !open) {
            frames.emplace_back();
        }
        if (isHex) {
            frames.back() += bytesOf(line.substr(4));
        }
        open = isHex;
    }
    return frames;
}

} // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 3; i < argc; i++) {
        const std::filesystem::path path = argv[i];
        for (const std::string& frame : framesOf(path)) {
            if (frame.size() > MAX_FRAME) {
                continue;
            }
            const std::string name = path.stem().string() + std::to_string(count++);
            std::ofstream(std::filesystem::path(argv[1]) / name, std::ios::binary) << frame;
            std::ofstream(std::filesystem::path(argv[2]) / name, std::ios::binary) << textOf(frame);
        }
    }
    printf("%d seeds\n", count);
    return count > 0 ? 0 : 1;
}
