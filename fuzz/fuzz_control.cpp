// Passes the input as one request to the control socket. The answer must be one line with one JSON object, which has
// the member "reply" or "error".
#include <cjson/cJSON.h>

#include <cstdlib>

#include "fakes.h"
#include "spat_conv_control_requests.h"

namespace {

v2xspatconv_peers_t readPeers() {
    return {"silent", 0, false, nullptr, 0};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const spat_conv_config_t config = {};
    const std::string request(reinterpret_cast<const char*>(data), size);
    const v2xspatconv_answer_t answer = v2xspatconv_AnswerRequest(request, {&config, {"v1", readPeers}, 0});
    cJSON* const json = cJSON_Parse(answer.line.c_str());
    const bool isAnswer = cJSON_HasObjectItem(json, "reply") || cJSON_HasObjectItem(json, "error");
    cJSON_Delete(json);
    if (!isAnswer || answer.line.find('\n') != answer.line.size() - 1) {
        abort();
    }
    fakes::logLines.clear();
    return 0;
}
