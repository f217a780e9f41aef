#include "v2xapp_gbspat.h"

#include <atomic>
#include <cstdlib>

#include "v2x/v2xlog.h"
#include "v2x/v2xmsgset.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbspat_element.h"

namespace {

v2xlog_tag_t g_tag{"GBSM"};

std::atomic<uint8_t> g_msgCnt{0};

constexpr int32_t MOY_INVALID = 527040;
constexpr uint64_t SECMARK_MAX = 65535;
constexpr uint64_t SECMARK_INVALID = 60000;
constexpr int32_t NAME_MAX_SIZE = 63;
constexpr int32_t TIME_CONFIDENCE_MAX = 39;
constexpr int8_t STATUS_BITS = 16;

int32_t Moy(MinuteOfTheYear_t*& member, const int32_t* moy) {
    if (moy == nullptr) {
        v2xapp_ElementAbsent(member);
    } else if (*moy >= 0 && *moy <= MOY_INVALID) {
        return v2xapp_ElementSet(g_tag, member, *moy);
    } else if (member != nullptr) {
        *member = MOY_INVALID;
    }
    return 0;
}

int32_t Secmark(DSecond_t*& member, uint64_t secMark) {
    if (secMark > SECMARK_MAX) {
        V2XLOG(g_tag, V2XLOG_WARN, "DSecond is out of range(0..65535), curr value = %ld", static_cast<long>(secMark));
        secMark = SECMARK_INVALID;
    }
    return v2xapp_ElementSet(g_tag, member, static_cast<long>(secMark));
}

int32_t SecmarkOfClock(DSecond_t*& member, uint64_t microseconds) {
    return Secmark(member, microseconds / 1000 % 60000);
}

} // namespace

int32_t v2xapp_GBMsgSPATInit(GBMSG_HANDLE* p_msgHdl, GBSPAT_HANDLE* p_spatHdl) {
    if (p_msgHdl == nullptr || p_spatHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    auto* frame = v2xapp_ElementNew<MessageFrame_t>();
    if (frame == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "malloc memory error!");
        return -1;
    }
    frame->present = MessageFrame_PR_spatFrame;
    *p_msgHdl = frame;
    *p_spatHdl = &frame->choice.spatFrame;
    return 0;
}

int32_t getSPATMsgCnt(GBSPAT_HANDLE spatHdl) {
    if (spatHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    uint8_t last = g_msgCnt.load(std::memory_order_relaxed);
    uint8_t next = 0;
    do {
        next = static_cast<uint8_t>((last + 1) % 128);
    } while (!g_msgCnt.compare_exchange_weak(last, next, std::memory_order_relaxed));
    static_cast<SPAT_t*>(spatHdl)->msgCnt = next;
    return 0;
}

int32_t v2xapp_GBMsgSPATMoy(GBSPAT_HANDLE spatHdl, int32_t* moy) {
    if (spatHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    return Moy(static_cast<SPAT_t*>(spatHdl)->moy, moy);
}

int32_t v2xapp_GBMsgSPATName(GBSPAT_HANDLE spatHdl, char* text, int32_t len) {
    if (spatHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    DescriptiveName_t*& name = static_cast<SPAT_t*>(spatHdl)->name;
    if (text != nullptr) {
        if (name == nullptr) {
            name = OCTET_STRING_new_fromBuf(&asn_DEF_DescriptiveName, text, len);
        } else {
            OCTET_STRING_fromBuf(name, text, len);
        }
    } else if (len < 1 || len > NAME_MAX_SIZE) {
        ASN_STRUCT_FREE(asn_DEF_DescriptiveName, name);
        name = nullptr;
    }
    return 0;
}

int32_t v2xapp_GBMsgSPATSecmark(GBSPAT_HANDLE spatHdl, uint64_t* now) {
    if (spatHdl == nullptr || now == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    return SecmarkOfClock(static_cast<SPAT_t*>(spatHdl)->timeStamp, *now);
}

int32_t v2xapp_GBMsgSPATSecmark2(GBSPAT_HANDLE spatHdl, uint64_t secMark) {
    if (spatHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    return Secmark(static_cast<SPAT_t*>(spatHdl)->timeStamp, secMark);
}

int32_t v2xapp_GBMsgSPATSectionInit(GBSPATIS_HANDLE* p_sectionHdl) {
    return v2xapp_ElementInit<IntersectionState_t>(g_tag, p_sectionHdl);
}

int32_t v2xapp_GBMsgSPATSectionAdd(GBSPAT_HANDLE spatHdl, GBSPATIS_HANDLE sectionHdl) {
    if (spatHdl == nullptr || sectionHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    asn_set_add(&static_cast<SPAT_t*>(spatHdl)->intersections.list, sectionHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionId(GBSPATIS_HANDLE sectionHdl, uint32_t id) {
    if (sectionHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    NodeReferenceID_t& node = static_cast<IntersectionState_t*>(sectionHdl)->intersectionId;
    const long region = id >> 16;
    node.id = id & 0xFFFF;
    if (node.region == nullptr) {
        node.region = v2xapp_ElementNew<RoadRegulatorID_t>();
    }
    if (node.region == nullptr) {
        V2XLOG(g_tag, V2XLOG_WARN, "intersectionId.region is out of range(0..65535), curr value = %ld", region);
        return -3;
    }
    *node.region = region;
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionStatus(GBSPATIS_HANDLE sectionHdl, int32_t status) {
    if (sectionHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    int64_t value = status;
    IntersectionStatusObject_t bits{};
    v2xcodec_long2BitString(&value, STATUS_BITS, &bits);
    if (bits.buf == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "calloc err");
        return -3;
    }
    auto& member = static_cast<IntersectionState_t*>(sectionHdl)->status;
    std::free(member.buf);
    member = bits;
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionMoy(GBSPATIS_HANDLE sectionHdl, int32_t* moy) {
    if (sectionHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    return Moy(static_cast<IntersectionState_t*>(sectionHdl)->moy, moy);
}

int32_t v2xapp_GBMsgSPATSectionSecmark(GBSPATIS_HANDLE sectionHdl, uint64_t* now) {
    if (sectionHdl == nullptr || now == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    return SecmarkOfClock(static_cast<IntersectionState_t*>(sectionHdl)->timeStamp, *now);
}

int32_t v2xapp_GBMsgSPATSectionSecmark2(GBSPATIS_HANDLE sectionHdl, uint64_t secMark) {
    if (sectionHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    return Secmark(static_cast<IntersectionState_t*>(sectionHdl)->timeStamp, secMark);
}

int32_t v2xapp_GBMsgSPATSectionTimeCfd(GBSPATIS_HANDLE sectionHdl, int32_t* timeConfidence) {
    if (sectionHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return 0;
    }
    auto& member = static_cast<IntersectionState_t*>(sectionHdl)->timeConfidence;
    if (timeConfidence == nullptr) {
        v2xapp_ElementAbsent(member);
        return 0;
    }
    if (*timeConfidence < 0 || *timeConfidence > TIME_CONFIDENCE_MAX) {
        V2XLOG(g_tag, V2XLOG_ERROR, "range out 0..39");
        return -2;
    }
    return v2xapp_ElementSet(g_tag, member, *timeConfidence);
}

int32_t v2xapp_GBMsgSPATSectionPhaseAdd(GBSPATIS_HANDLE sectionHdl, GBSPATISPHASE_HANDLE phaseHdl) {
    if (sectionHdl == nullptr || phaseHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    asn_set_add(&static_cast<IntersectionState_t*>(sectionHdl)->phases.list, phaseHdl);
    return 0;
}
