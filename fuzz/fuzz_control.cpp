// Passes the input as one request to the control socket. The answer must be one line with one JSON object, which has
// the member "reply" or "error".
#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>

#include "fakes.h"
#include "spat_conv_control_requests.h"
#include "spat_conv_gate.h"
#include "spat_conv_stack_interface.h"

namespace {

v2xspatconv_peers_t readPeers() {
    return {"silent", 0, false, 0, nullptr, 0};
}

// Returns a configuration with which the gate has forwarded a record of one phase.
const spat_conv_config_t& setUp() {
    static spat_conv_config_t config = {};
    config.m_control_path[0] = '/';
    config.m_learn_machine_info.m_is_enable = true;
    v2xspatconv_StackInterfaceInit();
    v2xspatconv_GateInit(config, 1);
    static uint8_t record[V2XIPC_RECORD_SIZE] = {};
    const v2xipc_phases_t head = {.m_phaseNum = 1};
    const v2xipc_phase_t phase = {1, 1};
    memcpy(record, &head, sizeof head);
    memcpy(record + sizeof head, &phase, sizeof phase);
    v2xspatconv_GateRecord(V2XSPATCONV_LEARNER, reinterpret_cast<const v2xipc_phases_t*>(record), {}, {}, 2);
    return config;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const spat_conv_config_t& config = setUp();
    const std::string request(reinterpret_cast<const char*>(data), size);
    const v2xspatconv_answer_t answer = v2xspatconv_AnswerRequest(request, {&config, {"v1", "1.2.3", readPeers}, 0, 0});
    cJSON* const json = cJSON_Parse(answer.line.c_str());
    const bool isAnswer = cJSON_HasObjectItem(json, "reply") || cJSON_HasObjectItem(json, "error");
    cJSON_Delete(json);
    if (!isAnswer || answer.line.find('\n') != answer.line.size() - 1) {
        abort();
    }
    fakes::logLines.clear();
    return 0;
}
