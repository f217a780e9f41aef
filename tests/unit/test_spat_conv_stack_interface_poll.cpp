#include <gmock/gmock.h>

#include "captured_frames.h"
#include "device_test.h"
#include "frame_1743.h"
#include "spat_conv_stack_interface_poll.h"
#include "spat_conv_v2xcloud_dds.h"
#include "v2x/v2xlog.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using frame_1743::operator+;

// A SPAT of an independent encoder: no optional part, intersection 0, phase 0, unavailable.
const char BARE[] = "30000000000000000000";
const char UP_BARE[] = R"({"intersections":[{"intersectionId":{"id":0},"status":0,"phases":[)"
                       R"({"phaseId":0,"phaseStates":[{"light":0}]}]}]})";

Bytes le16(size_t value) {
    return {static_cast<uint8_t>(value & 0xFF), static_cast<uint8_t>(value >> 8)};
}

Bytes item(const Bytes& frame) {
    return le16(frame.size()) + frame;
}

// A reply datagram by hand: head, block, items.
Bytes reply(size_t number, const Bytes& items, uint8_t command = 21, uint8_t type = 11) {
    return hex("A55A 04 00 0000000000000000") + Bytes{command, 0} + le16(11 + items.size()) + Bytes{0, type, 0, 0, 0} +
           le16(number) + Bytes{0, 0} + le16(items.size()) + Bytes{0} + items;
}

class StackReply : public DeviceTest {
protected:
    StackReply() {
        DealSpatDataRecvTaskFun(nullptr); // replies that an earlier test left
        v2xcloud_ddsInit("RSU0001");
        fakes::reset();
        fakes::setLogLevel(V2XLOG_WARN);
        fakes::ddsMatched["rsu/RSU0001/spat/up"] = 1;
    }
    // Checks one reply, in memory of exactly its size.
    static void deal(Bytes datagram) {
        datagram.shrink_to_fit();
        const v2xpub_UdpSocketDataHead_t head = {static_cast<int16_t>(datagram.size()), datagram.data()};
        v2xspatconv_GetRsuDataResp(&head);
    }
    static std::vector<std::string> up() {
        std::vector<std::string> texts;
        for (const fakes::DdsSample& sample : fakes::ddsSent) {
            texts.emplace_back(sample.bytes.begin(), sample.bytes.end());
        }
        fakes::ddsSent.clear();
        return texts;
    }
};

TEST_F(StackReply, RequestsWith28Bytes) {
    SendGetSpatDataToAPPTaskFun(nullptr);
    ASSERT_THAT(fakes::sent, SizeIs(1));
    EXPECT_EQ(fakes::sent[0].ip, "RSU_RCV (waits)");
    EXPECT_EQ(fakes::sent[0].port, 20010);
    EXPECT_EQ(fakes::sent[0].bytes, hex("A55A 04 00 0000000000000000 1400 0B00 00  0B000000 01000000 0000 00"));
    EXPECT_THAT(messages("SINF"), ElementsAre("3 UDP send error:-4"));
}

TEST_F(StackReply, SendsRepliesUpInOrderOfArrival) {
    fakes::replies = {reply(1, item(hex(BARE))), reply(1, item(hex(captured::spat)))};
    SendGetSpatDataToAPPTaskFun(nullptr);
    SendGetSpatDataToAPPTaskFun(nullptr);
    EXPECT_THAT(up(), IsEmpty());
    DealSpatDataRecvTaskFun(nullptr);
    EXPECT_THAT(up(), ElementsAre(UP_BARE, HasSubstr(R"("intersectionId":{"region":1,"id":33},"status":1280)")));
    DealSpatDataRecvTaskFun(nullptr);
    EXPECT_THAT(messages("SINF"), ElementsAre("3 NO SPAT data"));
    m_config->m_corrections.m_quiet_log = true;
    fakes::setLogLevel(V2XLOG_TRACE);
    DealSpatDataRecvTaskFun(nullptr);
    EXPECT_EQ(fakes::logged("NO SPAT data").at(0).level, V2XLOG_TRACE);
}

TEST_F(StackReply, DropsTheOldestOfMoreThan64) {
    for (size_t i = 0; i < 66; i++) {
        fakes::replies.push_back(reply(1, item(hex(i < 2 ? captured::spat : BARE))));
        SendGetSpatDataToAPPTaskFun(nullptr);
    }
    EXPECT_EQ(messages("SINF"), std::vector<std::string>(2, "3 64 replies are queued, the oldest is dropped"));
    DealSpatDataRecvTaskFun(nullptr);
    EXPECT_EQ(up(), std::vector<std::string>(64, UP_BARE));
    EXPECT_EQ(countsOf("reply"), (PathCounts{{"received", 66}, {"overrun", 2}, {"accepted", 64}, {"items", 64}}));
}

TEST_F(StackReply, ChecksRepliesInThisOrder) {
    const Bytes good = reply(1, item(hex(BARE)));
    const char* const wrongHead = "1 v2xspatconv_GetRsuDataResp headflag error";
    const char* const wrongLength = "1 v2xspatconv_GetRsuDataResp too large ; error";
    const char* const badItem = "2 v2xapp_GBRsiUperDecode error";
    const std::string head = "A55A 04 00 0000000000000000 ";
    const struct {
        const char* what;
        Bytes datagram;
        const char* log; // empty: nothing
        size_t documents;
    } cases[] = {
        {"good", good, "", 1},
        {"first flag", hex("A45A 04 00 0000000000000000 1400 0000 00"), wrongHead, 0},
        {"one byte", {0xA5}, wrongHead, 0},
        {"a byte more than the length", good + Bytes{0}, wrongLength, 0},
        {"ends inside the head", hex("A55A 04 00 00000000"), wrongLength, 0},
        {"nothing", hex(head + "1500 0000 00"), "3 Recv m_dataType error:0", 0},
        {"no room for a block", hex(head + "1500 0A00 00 0B000000 01000000 0000"), "2 input param error", 0},
        {"20480 bytes", reply(1, item(hex(BARE)) + Bytes(20480 - 11 - 12)), "", 1},
        {"20481 bytes", reply(1, item(hex(BARE)) + Bytes(20481 - 11 - 12)), wrongLength, 0},
        {"a request", reply(1, item(hex(BARE)), 20), "3 Recv cmdType error:20", 0},
        {"an item past the end", reply(1, le16(11) + hex(BARE)), badItem, 0},
        {"not a frame", reply(1, item(hex("36B6FA"))), badItem, 0},
        {"bytes behind the frame", reply(1, item(hex(BARE) + Bytes{0})), badItem, 0},
        {"another message", reply(1, item(hex(captured::bsm))), "", 0},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        deal(row.datagram);
        EXPECT_EQ(messages("SINF"), std::vector<std::string>(*row.log != 0 ? 1 : 0, row.log));
        EXPECT_THAT(up(), SizeIs(row.documents));
    }
    EXPECT_EQ(countsOf("reply")["bad_item"], 3U);
}

// Legacy: an item's offset adds the length of the previous item only.
TEST_F(StackReply, LegacyOffsetPlacesTheThirdItemInsideTheSecond) {
    deal(reply(3, item(hex(BARE)) + item(hex(captured::spat)) + item(hex(BARE))));
    EXPECT_THAT(up(), ElementsAre(UP_BARE, HasSubstr("33")));
    EXPECT_THAT(messages("SINF"), ElementsAre("2 v2xapp_GBRsiUperDecode error"));
}

TEST_F(StackReply, CorrectedItemsAreContiguousAndLimitedTo64) {
    m_config->m_corrections.m_reply_items = true;
    deal(reply(3, item(hex(BARE)) + item(hex(captured::spat)) + item(hex(BARE))));
    EXPECT_THAT(up(), ElementsAre(UP_BARE, HasSubstr("33"), UP_BARE));
    Bytes items;
    for (int i = 0; i < 65; i++) {
        items = items + item(hex(BARE));
    }
    deal(reply(65, items));
    EXPECT_THAT(up(), SizeIs(64));
    EXPECT_EQ(countsOf("reply")["items_over"], 1U);
}

} // namespace
