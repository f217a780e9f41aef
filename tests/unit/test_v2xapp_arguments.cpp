// The codec library rejects null arguments: one table for all its functions.
#include <gtest/gtest.h>
#include <tuple>
#include <type_traits>

#include "codec_log.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace {

// Calls the function once for each pointer in `arguments`, with that one replaced by null. A null in `arguments` marks
// an optional argument.
template <typename... Types>
void expectNullRejected(int32_t expected, int32_t (*function)(Types...), std::type_identity_t<Types>... arguments) {
    std::tuple<Types...> tuple{arguments...};
    const auto callWithout = [&](auto& argument) {
        if constexpr (std::is_pointer_v<std::remove_reference_t<decltype(argument)>>) {
            const auto valid = std::exchange(argument, nullptr);
            if (valid != nullptr) {
                EXPECT_EQ(std::apply(function, tuple), expected);
                EXPECT_EQ(codec_log::takeLog().size(), 1U);
            }
            argument = valid;
        }
    };
    std::apply([&](auto&... each) { (callWithout(each), ...); }, tuple);
}

TEST(CodecLibrary, RejectsNullArguments) {
    codec_log::takeLog();
    uint8_t bytes[8] = {};
    int16_t length = 7;
    uint32_t room = sizeof bytes;
    void* hdl = bytes; // stands for every handle: the functions must return before they use it
    expectNullRejected(-1, v2xcodec_uperEnc, hdl, bytes, 8, &length);
    expectNullRejected(-1, v2xcodec_uperDec, &hdl, bytes, 8);
    expectNullRejected(-1, v2xcodec_xerEnc, hdl, bytes, &room);
    expectNullRejected(-1, v2xcodec_xerDec, &hdl, bytes, 8);
    expectNullRejected(-1, v2xcodec_print, hdl);

    const v2xapp_gbMsg_PosStr_t raw = {};
    c_pos3D_t place = {};
    Position3D_t position = {};
    PositionOffsetLLV_t offset = {};
    expectNullRejected(-1, v2xcodec_GBpraseMsgPos, &raw, &place, &place);
    expectNullRejected(-1, prasePosOffsetLLV, &offset, &place, &place);
    expectNullRejected(-1, prasePosOffsetLLVOriginal, &offset, &position, &position);
    expectNullRejected(-2, setPosOffsetLLV, &place, &place, &offset);
    expectNullRejected(-2, setPosOffsetLLVOriginal, &position, &position, &offset);

    uint64_t clock = 1;
    expectNullRejected(-1, v2xapp_GBMsgSPATInit, &hdl, &hdl);
    expectNullRejected(-1, v2xapp_GBMsgSPATMoy, hdl, nullptr);
    expectNullRejected(-1, v2xapp_GBMsgSPATName, hdl, nullptr, 1);
    expectNullRejected(-1, v2xapp_GBMsgSPATSecmark, hdl, &clock);
    expectNullRejected(-1, v2xapp_GBMsgSPATSectionInit, &hdl);
    expectNullRejected(-1, v2xapp_GBMsgSPATSectionAdd, hdl, hdl);
    expectNullRejected(-1, v2xapp_GBMsgSPATSectionPhaseStatePhaseState, hdl, {});
    expectNullRejected(0, v2xapp_GBMsgSPATSectionTimeCfd, hdl, nullptr);
    EXPECT_TRUE(hdl == bytes && length == 7 && room == sizeof bytes && !place.posIsValid);
}

} // namespace
