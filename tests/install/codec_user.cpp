// Decodes a frame given in hex and encodes it again, without a log. Exits with status 0 when the bytes are equal.
#include <string>
#include <vector>

#include "v2xapp_upercodec.h"

int main(int argc, char** argv) {
    const std::string digits = argc > 1 ? argv[1] : "";
    std::vector<uint8_t> bytes;
    for (size_t at = 0; at + 2 <= digits.size(); at += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(at, 2), nullptr, 16)));
    }
    ASNSTRUCT_HANDLE frame = nullptr;
    if (v2xcodec_uperDec(&frame, nullptr, 1) != -1 || // a failure that would be logged
        v2xcodec_uperDec(&frame, bytes.data(), static_cast<int16_t>(bytes.size())) != 0) {
        return 1;
    }
    std::vector<uint8_t> again(bytes.size());
    int16_t length = 0;
    const int32_t result = v2xcodec_uperEnc(frame, again.data(), static_cast<int32_t>(again.size()), &length);
    v2xcodec_freeStrcut(&frame);
    return result == 0 && length == static_cast<int16_t>(bytes.size()) && again == bytes ? 0 : 2;
}
