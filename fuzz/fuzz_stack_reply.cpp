// Passes the input to the poll as one reply datagram of the stack application. Each document that the daemon publishes
// must be valid JSON. The input's first byte contains two switches: bit 0 selects the corrected item offsets; bit 1
// leaves the header as it is. Otherwise the target writes a valid header, so that the datagram passes the first checks.
#include <cjson/cJSON.h>

#include <cstdlib>
#include <cstring>

#include "fakes.h"
#include "hand_over.h"
#include "spat_conv_config.h"
#include "spat_conv_stack_interface_poll.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xipc_data.h"

namespace {

constexpr size_t HEAD_SIZE = sizeof(v2xipc_dataHead_t);

void start() {
    startHandOver();
    static const int32_t opened = v2xcloud_ddsInit("RSU0001");
    fakes::ddsMatched["rsu/RSU0001/spat/up"] = 1;
    if (opened != 0) {
        abort();
    }
}

// Writes a valid header. Also writes the data type of items, unless the first byte of the data block is FF.
void writeHeader(uint8_t* datagram, size_t size) {
    v2xipc_dataHead_t head = {};
    memcpy(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag);
    head.m_cmdType = V2XIPC_CMD_FROM_STACK;
    head.m_packLen = static_cast<uint16_t>(size - HEAD_SIZE);
    memcpy(datagram, &head, sizeof head);
    if (size > HEAD_SIZE + 4 && datagram[HEAD_SIZE] != 0xFF) {
        const int32_t type = V2XIPC_DATA_SPAT_UPER;
        memcpy(datagram + HEAD_SIZE, &type, sizeof type);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    start();
    if (size == 0 || size > INT16_MAX) {
        return 0;
    }
    const spat_conv_config_t* config = nullptr;
    v2xspatconv_GetCfgData(&config);
    const_cast<spat_conv_config_t*>(config)->m_corrections.m_reply_items = (data[0] & 1) != 0;
    const std::unique_ptr<uint8_t[]> datagram = exactCopy(data + 1, size - 1);
    if (size - 1 >= HEAD_SIZE && (data[0] & 2) == 0) {
        writeHeader(datagram.get(), size - 1);
    }
    const v2xpub_UdpSocketDataHead_t reply = {static_cast<int16_t>(size - 1), datagram.get()};
    v2xspatconv_GetRsuDataResp(&reply);
    for (const fakes::DdsSample& sample : fakes::ddsSent) {
        cJSON* const document =
            cJSON_ParseWithLength(reinterpret_cast<const char*>(sample.bytes.data()), sample.bytes.size());
        if (document == nullptr && sample.bytes != std::vector<uint8_t>{0}) {
            abort();
        }
        cJSON_Delete(document);
    }
    fakes::ddsSent.clear();
    checkHandOver();
    return 0;
}
