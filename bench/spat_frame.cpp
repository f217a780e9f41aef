#include "spat_frame.h"

#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

std::vector<uint8_t> encodeSpatFrame(int phases, int states) {
    GBMSG_HANDLE frame = nullptr;
    GBSPAT_HANDLE message = nullptr;
    GBSPATIS_HANDLE crossing = nullptr;
    int32_t minute = 513261;
    v2xapp_GBMsgSPATInit(&frame, &message);
    getSPATMsgCnt(message);
    v2xapp_GBMsgSPATMoy(message, &minute);
    v2xapp_GBMsgSPATSecmark2(message, 50998);
    v2xapp_GBMsgSPATSectionInit(&crossing);
    v2xapp_GBMsgSPATSectionId(crossing, 0x00010002);
    v2xapp_GBMsgSPATSectionStatus(crossing, 0x0500);
    for (int32_t id = 1; id <= phases; id++) {
        GBSPATISPHASE_HANDLE phase = nullptr;
        v2xapp_GBMsgSPATSectionPhaseInit(&phase);
        v2xapp_GBMsgSPATSectionPhaseId(phase, id);
        for (int32_t light = 0; light < states; light++) {
            GBSPATISPHASESTATE_HANDLE state = nullptr;
            c_phaseState_t timing = {};
            timing.stateMode = 1;
            timing.endTime = 12.3;
            timing.opt_nextStartTime = 40;
            timing.opt_nextDuration = 20;
            v2xapp_GBMsgSPATSectionPhaseStateInit(&state);
            v2xapp_GBMsgSPATSectionPhaseStateLightState(state, light % 9);
            v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, timing);
            v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state);
        }
        v2xapp_GBMsgSPATSectionPhaseAdd(crossing, phase);
    }
    v2xapp_GBMsgSPATSectionAdd(message, crossing);
    std::vector<uint8_t> bytes(16384);
    int16_t length = 0;
    if (v2xcodec_uperEnc(frame, bytes.data(), static_cast<int32_t>(bytes.size()), &length) != 0) {
        length = 0;
    }
    bytes.resize(static_cast<size_t>(length));
    v2xcodec_freeStrcut(&frame);
    return bytes;
}
