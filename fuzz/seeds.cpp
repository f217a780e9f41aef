// Makes fuzzing seeds from files with frames in hex (tests/data/uper). Skips frames above 4096 bytes. Writes each other
// frame as PER to PER_FOLDER and as XER to XER_FOLDER.
// usage: fuzz_seeds PER_FOLDER XER_FOLDER FILE...
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "uper_frames.h"
#include "v2x/v2xmsgset.h"

namespace {

constexpr size_t MAX_FRAME = 4096;

std::string toXer(const Bytes& frame) {
    void* value = nullptr;
    std::string text(1 << 20, '\0');
    asn_decode(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &value, frame.data(), frame.size());
    const asn_enc_rval_t result =
        asn_encode_to_buffer(nullptr, ATS_CANONICAL_XER, &asn_DEF_MessageFrame, value, text.data(), text.size());
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, value);
    text.resize(result.encoded < 0 ? 0 : static_cast<size_t>(result.encoded));
    return text;
}

} // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int i = 3; i < argc; i++) {
        const std::filesystem::path path = argv[i];
        for (const UperFrame& frame : uperFrames(path)) {
            if (frame.bytes.size() > MAX_FRAME) {
                continue;
            }
            const std::string name = path.stem().string() + std::to_string(count++);
            std::ofstream(std::filesystem::path(argv[1]) / name, std::ios::binary)
                << std::string(frame.bytes.begin(), frame.bytes.end());
            std::ofstream(std::filesystem::path(argv[2]) / name, std::ios::binary) << toXer(frame.bytes);
        }
    }
    printf("fuzz_seeds: %d frames written\n", count);
    return count > 0 ? 0 : 1;
}
