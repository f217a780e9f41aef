#include "spat_conv_signal_machine_1743_light.h"

#include <cstddef>
#include <cstring>

#include "spat_conv_gate.h"
#include "spat_conv_phase_table.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xipc_data.h"

namespace {

v2x_counter g_accepted{"1743", "accepted"};
v2x_counter g_notConverted{"1743", "not_converted"};
v2x_counter g_otherType{"1743", "other_type"};

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the records are copied from little-endian frames");

#pragma pack(push, 1)

struct data_1743_srid_t {
    uint8_t m_div_code[3];
    uint16_t m_type;
    uint16_t m_dev_id;
};

struct dataHead_1743_t {
    uint16_t m_linkCode;
    data_1743_srid_t m_sendID;
    data_1743_srid_t m_rcvID;
    uint8_t m_timeStamp[6];
    uint8_t m_ttl;
    uint8_t m_version;
    uint8_t m_ctlType;
    uint16_t m_objID;
    uint8_t m_signID;
    uint8_t m_reserve[3];
};
static_assert(sizeof(dataHead_1743_t) == 31 && offsetof(dataHead_1743_t, m_rcvID) == 9 &&
              offsetof(dataHead_1743_t, m_timeStamp) == 16 && offsetof(dataHead_1743_t, m_ctlType) == 24 &&
              offsetof(dataHead_1743_t, m_objID) == 25);

// Intersection. In the frame m_intoLinkNum entry links follow.
struct dataCrossSta_1743_t {
    uint16_t m_msgLen;
    float m_lon;
    float m_lat;
    int16_t m_elev;
    uint8_t m_intoLinkNum;
};
static_assert(sizeof(dataCrossSta_1743_t) == 13 && offsetof(dataCrossSta_1743_t, m_intoLinkNum) == 12);

// Entry link. In the frame m_lightNum lamp groups follow.
struct dataLinkLightSta_1743_t {
    uint16_t m_direction; // approach angle in degrees
    uint8_t m_lightNum;
};
static_assert(sizeof(dataLinkLightSta_1743_t) == 3 && offsetof(dataLinkLightSta_1743_t, m_lightNum) == 2);

// Lamp group.
struct dataLightSta_1743_t {
    uint8_t m_lightID;
    uint8_t m_lightType;
    uint8_t m_lightColorSta; // bits as in COLOURS
    uint8_t m_leftTime;      // remaining seconds; 0: unknown
};
static_assert(sizeof(dataLightSta_1743_t) == 4);

#pragma pack(pop)

constexpr uint8_t LIGHT_STATUS_CTL_TYPE = 0x87;
constexpr uint16_t LIGHT_STATUS_OBJ_ID = 0x0103;
constexpr int32_t INDEX_MAX = 10; // largest accepted index of an entry link, and of a lamp group in a link
constexpr uint16_t TENTHS_PER_SECOND = 10;

enum e_intoLinkDirection_1743 : uint8_t {
    INTO_LINK_DIRECTION_NONE = 0,
    INTO_LINK_DIRECTION_NORTH = 1,
    INTO_LINK_DIRECTION_EAST = 2,
    INTO_LINK_DIRECTION_SOUTH = 3,
    INTO_LINK_DIRECTION_WEST = 4,
};

// Directions by approach angle. Each row ends at lastAngle degrees; the next row starts at the following degree.
constexpr struct {
    uint16_t lastAngle;
    e_intoLinkDirection_1743 direction;
} DIRECTIONS[] = {
    {44, INTO_LINK_DIRECTION_NORTH}, {134, INTO_LINK_DIRECTION_EAST},         {224, INTO_LINK_DIRECTION_SOUTH},
    {314, INTO_LINK_DIRECTION_WEST}, {UINT16_MAX, INTO_LINK_DIRECTION_NORTH},
};

// Phase ids by lamp type and direction. Legacy: the row of type 8 is irregular.
constexpr struct {
    uint8_t lightType;
    uint8_t phaseIds[5]; // index: e_intoLinkDirection_1743
} PHASE_IDS[] = {
    {1, {0, 1, 2, 3, 4}},   {2, {0, 7, 8, 9, 10}},    {3, {0, 13, 14, 15, 16}},
    {8, {0, 5, 6, 11, 12}}, {9, {0, 17, 18, 19, 20}},
};

// Light states by colour bit. If several bits are set, the first row applies.
constexpr struct {
    uint8_t bit;
    uint8_t lightState;
} COLOURS[] = {
    {0x02, V2XIPC_LIGHT_RED},
    {0x08, V2XIPC_LIGHT_YELLOW},
    {0x20, V2XIPC_LIGHT_PERMISSIVE_GREEN},
};

// A device phase table and the number of written bytes.
struct PhaseTable {
    uint8_t entries[V2XSPATCONV_PHASE_TABLE_SIZE];
    size_t written = 0;
};
// The table is large enough for 12 links of 12 groups: the twelfth is converted before the frame is rejected.
static_assert((INDEX_MAX + 2) * (INDEX_MAX + 2) * (sizeof(v2xipc_phase_t) + sizeof(v2xipc_pahseState_t)) <=
              V2XSPATCONV_PHASE_TABLE_SIZE);

// Copies the first bytes to the record and advances `bytes`. Returns false, without a change, if there are too few
// bytes.
template <typename Record>
bool TakeRecord(std::span<const uint8_t>& bytes, Record& record) {
    if (bytes.size() < sizeof record) {
        return false;
    }
    memcpy(&record, bytes.data(), sizeof record);
    bytes = bytes.subspan(sizeof record);
    return true;
}

// Returns the direction of an approach angle in degrees.
e_intoLinkDirection_1743 getDirection(uint16_t angle) {
    for (const auto& row : DIRECTIONS) {
        if (angle <= row.lastAngle) {
            return row.direction;
        }
    }
    return INTO_LINK_DIRECTION_NONE;
}

// Stores the phase id of a lamp type and an approach angle in *phaseId. An unknown lamp type leaves *phaseId unchanged.
// Returns 0.
int32_t DealSignalMachinePhaseID(uint16_t direction, uint8_t light_type, uint8_t* phaseId) {
    for (const auto& row : PHASE_IDS) {
        if (row.lightType == light_type) {
            *phaseId = row.phaseIds[getDirection(direction)];
        }
    }
    return 0;
}

// Stores the light state of the colour bits in *out_data. Without a known bit *out_data stays unchanged. Returns 0.
int32_t DealLearnMachineLightStataToIpcData(uint8_t light_data, uint8_t* out_data) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    for (const auto& row : COLOURS) {
        if ((light_data & row.bit) != 0) {
            *out_data = row.lightState;
            break;
        }
    }
    return ret;
}

// Appends one lamp group to the table. An unknown lamp type gives phase id 0, which is never copied to a SPAT phase.
void v2xspatconv_DealSinglePhase(const dataLightSta_1743_t& group, uint16_t direction, PhaseTable& table) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    uint8_t phaseId = 0;
    DealSignalMachinePhaseID(direction, group.m_lightType, &phaseId);
    uint8_t lightState = V2XIPC_LIGHT_UNAVAILABLE;
    uint16_t endTime = V2XIPC_TIME_UNKNOWN;
    if (group.m_leftTime != 0) {
        DealLearnMachineLightStataToIpcData(group.m_lightColorSta, &lightState);
        endTime = static_cast<uint16_t>(group.m_leftTime * TENTHS_PER_SECOND);
    }
    V2XLOG(g_1743Log, V2XLOG_DEBUG, "===direction:%d===phaseId%d:%d[%d]======", direction, phaseId, endTime,
           lightState);
    table.written += v2xspatconv_WritePhase(table.entries + table.written, phaseId, lightState, endTime);
}

// Converts one lamp group and advances `data`. Legacy: m_phaseNum counts every lamp group, even of an unknown lamp
// type. Returns 0; -3 if the frame is too short.
int32_t DealLightGroupColorInfo(std::span<const uint8_t>& data, uint16_t direction, v2xipc_phases_t* spat_ipc,
                                PhaseTable& table) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    spat_ipc->m_phaseNum = static_cast<int8_t>(spat_ipc->m_phaseNum + 1);
    dataLightSta_1743_t group;
    if (!TakeRecord(data, group)) {
        return ret = -3;
    }
    v2xspatconv_DealSinglePhase(group, direction, table);
    return ret;
}

// Converts one entry link with its lamp groups and advances `data`. Returns 0; -3 if the frame is too short; -4 for too
// many groups.
int32_t DealIntoLinkLightColorStatusInfo(std::span<const uint8_t>& data, v2xipc_phases_t* spat_ipc, PhaseTable& table) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    dataLinkLightSta_1743_t link;
    if (!TakeRecord(data, link)) {
        return ret = -3;
    }
    for (int32_t j = 0; j < link.m_lightNum; j++) {
        if (DealLightGroupColorInfo(data, link.m_direction, spat_ipc, table) != 0) {
            V2XLOG(g_1743Log, V2XLOG_ERROR, "Deal light group color info error");
            return ret = -3;
        }
        if (j > INDEX_MAX) {
            V2XLOG(g_1743Log, V2XLOG_ERROR, "into light group count is too much");
            return ret = -4;
        }
    }
    return ret;
}

// Converts the content of a light-status report to a record whose header is filled. Returns 0; -3 if the frame is too
// short or a link fails; -4 for too many links.
int32_t DealLightColorStatusContent(const spat_conv_config_t& cfg, std::span<const uint8_t> data,
                                    v2xipc_phases_t* spat_ipc, v2xspatconv_findings_t& findings) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    dataCrossSta_1743_t msgCross;
    if (!TakeRecord(data, msgCross)) {
        return ret = -3;
    }
    PhaseTable table;
    for (int32_t i = 0; i < msgCross.m_intoLinkNum; i++) {
        if (DealIntoLinkLightColorStatusInfo(data, spat_ipc, table) != 0) {
            V2XLOG(g_1743Log, V2XLOG_ERROR, "Deal into link light color status info error");
            return ret = -3;
        }
        if (i > INDEX_MAX) {
            V2XLOG(g_1743Log, V2XLOG_ERROR, "into link count is too much");
            return ret = -4;
        }
    }
    DealLMPhaseToIpcData(g_1743Log, cfg.m_guard.m_sources[V2XSPATCONV_1743].m_phaseid, v2xspatconv_match::first,
                         {table.entries, table.written}, spat_ipc, findings);
    return ret;
}

int32_t DealSignalMachineToIpcSpat(std::span<const uint8_t> data, v2xipc_phases_t* spat_ipc,
                                   v2xspatconv_findings_t& findings) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    const spat_conv_config_t* cfg = v2xspatconv_GetAdapterConfig(g_1743Log);
    ret = cfg != nullptr ? v2xspatconv_FillIpcHead(g_1743Log, *cfg, spat_ipc) : -4;
    if (ret == 0) {
        ret = DealLightColorStatusContent(*cfg, data, spat_ipc, findings);
    }
    return ret;
}

} // namespace

int32_t DealSignalMachineDataTable(std::span<const uint8_t> data, v2xpub_address_t sender) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    dataHead_1743_t head;
    if (!TakeRecord(data, head) || head.m_ctlType != LIGHT_STATUS_CTL_TYPE || head.m_objID != LIGHT_STATUS_OBJ_ID) {
        g_otherType.Add();
        return ret = -1;
    }
    alignas(8) uint8_t record[V2XIPC_RECORD_SIZE] = {};
    v2xipc_phases_t* spat_ipc = reinterpret_cast<v2xipc_phases_t*>(record);
    v2xspatconv_findings_t findings;
    ret = DealSignalMachineToIpcSpat(data, spat_ipc, findings);
    if (ret != 0) {
        g_notConverted.Add();
        V2XLOG(g_1743Log, V2XLOG_WARN, "DealSignalMachineToIpcSpat error");
    } else {
        g_accepted.Add();
        v2xspatconv_GateRecord(V2XSPATCONV_1743, spat_ipc, findings, sender, v2xpub_GetMonotonicTime());
    }
    v2xspatconv_LinkCountAccepted(g_1743Link);
    return ret;
}
