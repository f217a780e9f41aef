// The codec library without memory: results, messages, and what stays as it was.
#include <functional>
#include <gtest/gtest.h>

#include "captured_frames.h"
#include "fakes.h"
#include "v2x/v2xlog.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace {
int g_allowed = -1; // allocations until one fails; below 0: none does

bool fails() {
    return g_allowed >= 0 && g_allowed-- == 0;
}
} // namespace

// The linker sends the program's calls here and gives the originals these names.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);

void* __wrap_malloc(size_t size) {
    return fails() ? nullptr : __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
    return fails() ? nullptr : __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, size_t size) {
    return fails() ? nullptr : __real_realloc(memory, size);
}
}

namespace {

TEST(WithoutMemory, OperationsSayWhatTheyLack) {
    fakes::logLevel = V2XLOG_WARN;
    GBMSG_HANDLE frame = nullptr;
    GBSPAT_HANDLE spat = nullptr;
    GBSPATIS_HANDLE section = nullptr;
    GBSPATISPHASE_HANDLE phase = nullptr;
    GBSPATISPHASESTATE_HANDLE state = nullptr;
    ASSERT_EQ(v2xapp_GBMsgSPATInit(&frame, &spat) + v2xapp_GBMsgSPATSectionInit(&section) +
                  v2xapp_GBMsgSPATSectionPhaseInit(&phase) + v2xapp_GBMsgSPATSectionPhaseStateInit(&state),
              0);
    v2xapp_GBMsgSPATSectionAdd(spat, section);
    v2xapp_GBMsgSPATSectionPhaseAdd(section, phase);
    v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state);
    void* made = nullptr;
    int32_t number = 5;
    c_phaseState_t timing = {};
    timing.stateMode = 1;
    PositionOffsetLLV_t offset = {};
    const c_pos3D_t here = {true, 0, 1, 1, true, 5, {}};
    const struct {
        std::function<int32_t()> operation;
        int32_t result;
        const char* said;
    } cases[] = {
        {[&] { return v2xapp_GBMsgSPATInit(&made, &made); }, -1, "GBSM2 malloc memory error!"},
        {[&] { return v2xapp_GBMsgSPATSectionInit(&made); }, -2, "GBSM2 calloc section err"},
        {[&] { return v2xapp_GBMsgSPATSectionPhaseInit(&made); }, -2, "GBSM2 calloc section err"},
        {[&] { return v2xapp_GBMsgSPATSectionPhaseStateInit(&made); }, -2, "GBSM2 calloc section err"},
        {[&] { return v2xapp_GBMsgSPATSectionId(section, 0x00010002); }, -3,
         "GBSM3 intersectionId.region is out of range(0..65535), curr value = 1"},
        {[&] { return v2xapp_GBMsgSPATSectionTimeCfd(section, &number); }, -3, "GBSM2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATMoy(spat, &number); }, -3, "GBSM2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATSecmark2(spat, 5); }, -3, "GBSM2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATSectionStatus(section, 5); }, -3, "GBSM2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, timing); }, 0, "GBSM2 calloc err"},
        {[&] { return setPosOffsetLLV(&here, &here, &offset); }, 0, "UPER2 calloc err"},
    };
    for (const auto& row : cases) {
        fakes::logLines.clear();
        fakes::logLines.reserve(2);
        g_allowed = 0;
        EXPECT_EQ(row.operation(), row.result) << row.said;
        g_allowed = -1;
        ASSERT_EQ(fakes::logLines.size(), 1U) << row.said;
        const fakes::LogLine& line = fakes::logLines[0];
        EXPECT_EQ(line.tag + std::to_string(line.level) + " " + line.text, row.said);
    }
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(offset.offsetV, nullptr);
    const auto& held = *static_cast<SPAT_t*>(spat);
    EXPECT_TRUE(held.moy == nullptr && held.timeStamp == nullptr);
    EXPECT_EQ(static_cast<PhaseState_t*>(state)->timing, nullptr);
    v2xcodec_freeStrcut(&frame);
}

TEST(WithoutMemory, DecodingFailsAtAnyAllocation) {
    fakes::logLevel = V2XLOG_UNDO;
    Bytes bytes = hex(captured::spat);
    int allowed = 0;
    for (int32_t result = -2; result == -2; allowed++) {
        ASNSTRUCT_HANDLE hdl = nullptr;
        g_allowed = allowed;
        result = v2xcodec_uperDec(&hdl, bytes.data(), static_cast<int16_t>(bytes.size()));
        g_allowed = -1;
        EXPECT_EQ(hdl == nullptr, result == -2) << allowed;
        if (hdl != nullptr) {
            v2xcodec_freeStrcut(&hdl);
        }
        ASSERT_LT(allowed, 10000);
    }
    EXPECT_GT(allowed, 100);
}

} // namespace
