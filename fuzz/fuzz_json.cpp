// Decodes the input as one line of JSON or, if the input does not begin with '{', as one frame in unaligned PER. Checks
// that a round trip through JSON does not change the message.
#include <cstdio>
#include <cstdlib>

#include "exact_copy.h"
#include "message_json.h"

namespace {

void abortUnless(bool condition, const char* failure, const std::string& json) {
    if (!condition) {
        fprintf(stderr, "fuzz_json: %s: %s\n", failure, json.c_str());
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    const bool isJson = size > 0 && data[0] == '{';
    const msg::Decoded decoded = isJson ? msg::DecodeJson({reinterpret_cast<const char*>(bytes.get()), size})
                                        : msg::DecodeFrame({bytes.get(), size});
    if (decoded.message == nullptr) {
        return 0;
    }
    std::string json;
    msg::AppendJson(*decoded.message, json);
    if (asn_check_constraints(&asn_DEF_MessageFrame, decoded.message.get(), nullptr, nullptr) != 0) {
        abortUnless(!isJson, "JSON makes an invalid message", json);
        return 0;
    }
    const msg::Decoded again = msg::DecodeJson(json);
    abortUnless(again.message != nullptr, "the JSON of a valid message is rejected", json);
    std::string failedType;
    const std::vector<uint8_t> frame = msg::EncodeFrame(*decoded.message, failedType);
    abortUnless(!frame.empty(), "a valid message cannot be encoded", json);
    abortUnless(msg::EncodeFrame(*again.message, failedType) == frame, "a round trip changes the message", json);
    return 0;
}
