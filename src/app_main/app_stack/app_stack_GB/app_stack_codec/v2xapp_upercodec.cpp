#include "v2xapp_upercodec.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>

#include "v2xapp_private.h"
#include "xer_encoder.h"

namespace {

constexpr const char* TAG = "UPER"; // of the log lines

// A peer can send invalid frames endlessly, so only every 202nd failure is logged.
constexpr uint64_t FAILURES_PER_LINE = 202;
std::atomic<uint64_t> printCount{0};

struct FrameDeleter {
    void operator()(MessageFrame_t* frame) const {
        ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_MessageFrame, frame);
        std::free(frame->_asn_ctx.ptr);
        std::free(frame);
    }
};
using Frame = std::unique_ptr<MessageFrame_t, FrameDeleter>;

// Returns the name of a type for the log.
const char* TypeName(const asn_TYPE_descriptor_t* type) {
    return type != nullptr ? type->name : "unknown";
}

// Counts one decoding failure. Returns true for every 202nd failure, which the caller logs.
bool CountFailure() {
    return printCount.fetch_add(1, std::memory_order_relaxed) % FAILURES_PER_LINE == FAILURES_PER_LINE - 1;
}

// Decodes one frame and stores the decoder's result. The frame is null or incomplete if result.code is not RC_OK.
Frame DecodeFrame(asn_transfer_syntax syntax, const uint8_t* bytes, size_t size, asn_dec_rval_t& result) {
    void* structure = nullptr;
    result = asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, &structure, bytes, size);
    return Frame(static_cast<MessageFrame_t*>(structure));
}

} // namespace

int32_t v2xcodec_uperEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, int32_t enc_bufLen, int16_t* encLen) {
    if (!v2xapp_Check(TAG, hdl != nullptr && enc_buf != nullptr && encLen != nullptr, "input para error!")) {
        return -1;
    }
    const auto bufferSize = static_cast<size_t>(std::max(enc_bufLen, 0));
    const asn_enc_rval_t result =
        asn_encode_to_buffer(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, hdl, enc_buf, bufferSize);
    if (result.encoded < 0) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_ERROR, "Coubld not encode MessageFrame at %s", TypeName(result.failed_type));
        return -2;
    }
    *encLen = static_cast<int16_t>(result.encoded);
    return 0;
}

int32_t v2xcodec_uperDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int16_t enc_bufLen) {
    if (!v2xapp_Check(TAG, hdl != nullptr && enc_buf != nullptr && enc_bufLen > 0, "input para error!")) {
        return -1;
    }
    const auto size = static_cast<size_t>(enc_bufLen);
    asn_dec_rval_t result;
    Frame frame = DecodeFrame(ATS_UNALIGNED_CANONICAL_PER, enc_buf, size, result);
    if (result.code != RC_OK || frame->present == MessageFrame_PR_NOTHING) {
        if (CountFailure()) {
            V2XAPP_LOG(TAG, V2XCODEC_LOG_ERROR, "uper decode error p_msgF->present=%d!",
                       frame != nullptr ? static_cast<int>(frame->present) : 0);
        }
        *hdl = nullptr;
        return -2;
    }
    if (result.consumed < size) {
        return -3;
    }
    *hdl = frame.release();
    return 0;
}

int32_t v2xcodec_xerEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, uint32_t* enc_bufLen) {
    if (!v2xapp_Check(TAG, hdl != nullptr && enc_buf != nullptr && enc_bufLen != nullptr, "input para error!")) {
        return -1;
    }
    const asn_enc_rval_t result =
        asn_encode_to_buffer(nullptr, ATS_BASIC_XER, &asn_DEF_MessageFrame, hdl, enc_buf, *enc_bufLen);
    if (result.encoded < 0) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_ERROR, "Coubld not encode MessageFrame at %s; ec.encoded = %ld",
                   TypeName(result.failed_type), static_cast<long>(result.encoded));
        return -2;
    }
    *enc_bufLen = static_cast<uint32_t>(result.encoded);
    return 0;
}

int32_t v2xcodec_xerDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int32_t enc_bufLen) {
    if (!v2xapp_Check(TAG, hdl != nullptr && enc_buf != nullptr && enc_bufLen > 0, "input para error!")) {
        return -1;
    }
    asn_dec_rval_t result;
    Frame frame = DecodeFrame(ATS_CANONICAL_XER, enc_buf, static_cast<size_t>(enc_bufLen), result);
    if (result.code != RC_OK || frame->present == MessageFrame_PR_NOTHING) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_ERROR, "Could not decode MessageFrame");
        return -2;
    }
    V2XAPP_LOG(TAG, V2XCODEC_LOG_DEBUG, "p_msgF=%p", static_cast<void*>(frame.get()));
    *hdl = frame.release();
    return 0;
}

void v2xcodec_freeStrcut(ASNSTRUCT_HANDLE* hdl) {
    if (hdl == nullptr || *hdl == nullptr) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_ERROR, "struct is null");
        return;
    }
    FrameDeleter{}(static_cast<MessageFrame_t*>(*hdl));
    *hdl = nullptr;
    V2XAPP_LOG(TAG, V2XCODEC_LOG_DEBUG, "free ASN MessageFrame struct");
}

int32_t v2xcodec_print(ASNSTRUCT_HANDLE hdl) {
    if (v2xapp_Check(TAG, hdl != nullptr, "input para error!")) {
        xer_fprint(stderr, &asn_DEF_MessageFrame, hdl);
    }
    return -1;
}

v2xcodec_msgType_e v2xcodec_getMsgType(ASNSTRUCT_HANDLE* hdl, void** /*msgKey*/) {
    if (hdl == nullptr || *hdl == nullptr) {
        return V2XCODEC_MSG_UNKNOW;
    }
    return static_cast<v2xcodec_msgType_e>(static_cast<MessageFrame_t*>(*hdl)->present);
}
