// Measures how the daemon turns a reply of the stack application into the cloud's document: checks, decoding and JSON.
// With a DDS reader, the figures include the send. The baseline decodes the frame with the asn1c runtime and prints an
// equal cJSON tree.
#include <chrono>
#include <cjson/cJSON.h>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "compare.h"
#include "configuration.h"
#include "spat_conv_deamon_codec_log.h"
#include "spat_conv_spatup.h"
#include "spat_conv_stack_interface_poll.h"
#include "spat_conv_v2xcloud_dds.h"
#include "spat_frame.h"
#include "v2x/v2xdds.h"
#include "v2x/v2xipc_data.h"
#include "v2xapp_upercodec.h"

#include "per_decoder.h"

namespace {

using Bytes = std::vector<uint8_t>;

constexpr const char* DEVICE = "BENCH";

// Reads the cloud's topic. The constructor waits up to 10 s until the daemon's writer matches the reader.
class Reader {
public:
    Reader() : m_handle(create_dds()) {
        dds_reg(
            m_handle, 200, v2xspatconv_GetddsInfo()->mp_spat_up_topic, [](void*, unsigned int) {}, 0);
        dds_start(m_handle);
        for (int i = 0; i < 1000 && countReaders() < 1; i++) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    ~Reader() { destroy_dds(m_handle); }
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;
    static int32_t countReaders() {
        const v2xcloud_comm_ddsinfo* channel = v2xspatconv_GetddsInfo();
        return get_match_cnt(channel->dds_object, channel->mp_spat_up_topic);
    }

private:
    void* m_handle;
};

// Makes a reply with one item.
Bytes makeReply(const Bytes& frame) {
    v2xipc_dataHead_t head = {};
    v2xipc_rsuData_t block = {};
    const auto length = static_cast<uint16_t>(frame.size());
    memcpy(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag);
    head.m_cmdType = V2XIPC_CMD_FROM_STACK;
    block.m_dataType = V2XIPC_DATA_SPAT_UPER;
    block.m_dataNo = 1;
    block.m_dataLen = static_cast<uint16_t>(sizeof length + length);
    head.m_packLen = static_cast<uint16_t>(sizeof block + block.m_dataLen);
    Bytes bytes(sizeof head + head.m_packLen);
    memcpy(bytes.data(), &head, sizeof head);
    memcpy(bytes.data() + sizeof head, &block, sizeof block);
    memcpy(bytes.data() + sizeof head + sizeof block, &length, sizeof length);
    memcpy(bytes.data() + sizeof head + sizeof block + sizeof length, frame.data(), length);
    return bytes;
}

// Converts the frame to the cloud's document and parses the document. The caller deletes the tree.
cJSON* makeTree(Bytes& frame) {
    ASNSTRUCT_HANDLE hdl = nullptr;
    if (v2xcodec_uperDec(&hdl, frame.data(), static_cast<int16_t>(frame.size())) != 0) {
        return nullptr;
    }
    char* text = v2xspatconv_SpatStructToJson(&static_cast<MessageFrame_t*>(hdl)->choice.spatFrame);
    cJSON* tree = cJSON_Parse(text);
    cJSON_free(text);
    v2xcodec_freeStrcut(&hdl);
    return tree;
}

bool measure(const char* what, int phases, int states) {
    Bytes frame = encodeSpatFrame(phases, states);
    Bytes datagram = makeReply(frame);
    cJSON* const tree = makeTree(frame);
    bool isOk = tree != nullptr;
    compare(
        what,
        [&] {
            void* decoded = nullptr;
            asn_codec_ctx_t context{};
            isOk &= uper_decode_complete(&context, &asn_DEF_MessageFrame, &decoded, frame.data(), frame.size()).code ==
                    RC_OK;
            ASN_STRUCT_FREE(asn_DEF_MessageFrame, decoded);
            char* text = cJSON_PrintUnformatted(tree);
            isOk &= text != nullptr;
            cJSON_free(text);
        },
        [&] {
            const v2xpub_UdpSocketDataHead_t data = {static_cast<int16_t>(datagram.size()), datagram.data()};
            isOk &= v2xspatconv_GetRsuDataResp(&data) == 0;
        });
    cJSON_Delete(tree);
    return isOk;
}

} // namespace

int main() {
    v2xspatconv_SetCodecLog();
    if (!loadConfiguration(DEVICE, {"SINF", "SPUP", "UPER"}) || v2xcloud_ddsInit(DEVICE) != 0) {
        fprintf(stderr, "bench_reply: cannot load the configuration or open the cloud channel\n");
        return 1;
    }
    compareHeading("bare", "reply");
    bool isOk = measure("1 phase, no reader", 1, 1) && measure("8 phases, no reader", 8, 1) &&
                measure("16 phases of 16 states, no reader", 16, 16);
    {
        const Reader reader;
        isOk = isOk && Reader::countReaders() == 1 && measure("1 phase, one DDS reader", 1, 1) &&
               measure("8 phases, one DDS reader", 8, 1) && measure("16 phases of 16 states, one DDS reader", 16, 16);
    }
    v2xcloud_ddsExit(v2xspatconv_GetddsInfo());
    return isOk ? 0 : 1;
}
