// The codec library rejects null arguments: one table for all its functions.
#include <gtest/gtest.h>
#include <tuple>
#include <type_traits>

#include "fakes.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace {

struct Rejection {
    int32_t result;
    std::string log;
};

// Calls the function once for each pointer in `arguments`, with that one replaced by null. A null in `arguments` marks
// an optional argument.
template <typename... Types>
void expectNullRejected(const Rejection& expected, int32_t (*function)(Types...),
                        std::type_identity_t<Types>... arguments) {
    std::tuple<Types...> tuple{arguments...};
    const auto callWithout = [&](auto& argument) {
        if constexpr (std::is_pointer_v<std::remove_reference_t<decltype(argument)>>) {
            const auto valid = std::exchange(argument, nullptr);
            if (valid != nullptr) {
                EXPECT_EQ(std::apply(function, tuple), expected.result);
                EXPECT_EQ(fakes::takeLog(), std::vector{expected.log});
            }
            argument = valid;
        }
    };
    std::apply([&](auto&... each) { (callWithout(each), ...); }, tuple);
}

TEST(CodecLibrary, RejectsNullArguments) {
    fakes::takeLog();
    uint8_t bytes[8] = {};
    int16_t length = 7;
    uint32_t room = sizeof bytes;
    void* hdl = bytes; // stands for every handle: the functions must return before they use it
    const Rejection codec = {-1, "UPER 2 input para error!"};
    expectNullRejected(codec, v2xcodec_uperEnc, hdl, bytes, 8, &length);
    expectNullRejected(codec, v2xcodec_uperDec, &hdl, bytes, 8);
    expectNullRejected(codec, v2xcodec_xerEnc, hdl, bytes, &room);
    expectNullRejected(codec, v2xcodec_xerDec, &hdl, bytes, 8);
    expectNullRejected(codec, v2xcodec_print, hdl);

    const v2xapp_gbMsg_PosStr_t raw = {};
    c_pos3D_t place = {};
    Position3D_t position = {};
    PositionOffsetLLV_t offset = {};
    const Rejection decoder = {-1, "UPER 2 input param error"};
    const Rejection encoder = {-2, "UPER 2 input para error"};
    expectNullRejected(decoder, v2xcodec_GBpraseMsgPos, &raw, &place, &place);
    expectNullRejected(decoder, prasePosOffsetLLV, &offset, &place, &place);
    expectNullRejected(decoder, prasePosOffsetLLVOriginal, &offset, &position, &position);
    expectNullRejected(encoder, setPosOffsetLLV, &place, &place, &offset);
    expectNullRejected(encoder, setPosOffsetLLVOriginal, &position, &position, &offset);

    uint64_t clock = 1;
    const Rejection builder = {-1, "GBSM 2 input err"};
    expectNullRejected(builder, v2xapp_GBMsgSPATInit, &hdl, &hdl);
    expectNullRejected(builder, getSPATMsgCnt, hdl);
    expectNullRejected(builder, v2xapp_GBMsgSPATMoy, hdl, nullptr);
    expectNullRejected(builder, v2xapp_GBMsgSPATName, hdl, nullptr, 1);
    expectNullRejected(builder, v2xapp_GBMsgSPATSecmark, hdl, &clock);
    expectNullRejected(builder, v2xapp_GBMsgSPATSecmark2, hdl, 1);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionInit, &hdl);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionAdd, hdl, hdl);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionId, hdl, 1);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionStatus, hdl, 1);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionMoy, hdl, nullptr);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionSecmark, hdl, &clock);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionSecmark2, hdl, 1);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionPhaseInit, &hdl);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionPhaseAdd, hdl, hdl);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionPhaseId, hdl, 1);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionPhaseStateInit, &hdl);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionPhaseStateAdd, hdl, hdl);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionPhaseStateLightState, hdl, 1);
    expectNullRejected(builder, v2xapp_GBMsgSPATSectionPhaseStatePhaseState, hdl, {});
    expectNullRejected({0, builder.log}, v2xapp_GBMsgSPATSectionTimeCfd, hdl, nullptr);
    EXPECT_TRUE(hdl == bytes && length == 7 && room == sizeof bytes && !place.posIsValid);
}

} // namespace
