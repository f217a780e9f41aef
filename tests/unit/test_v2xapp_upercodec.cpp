#include <gtest/gtest.h>
#include <thread>
#include <tuple>

#include "bytes.h"
#include "captured_frames.h"
#include "codec_log.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace {

using codec_log::takeLog;

// A handle that a failure must leave alone.
uint8_t g_mark;
const ASNSTRUCT_HANDLE MARK = &g_mark;

class Codec : public testing::Test {
protected:
    // The next 201 failures are not logged.
    Codec() {
        takeLog();
        do {
            decode({0x36});
        } while (takeLog().empty());
    }
    ~Codec() override {
        if (m_hdl != nullptr && m_hdl != MARK) {
            v2xcodec_freeStrcut(&m_hdl);
        }
    }
    // The buffer ends where the bytes end, so that the sanitizer sees a read beyond them.
    int32_t decode(Bytes bytes) {
        bytes.shrink_to_fit();
        return v2xcodec_uperDec(&m_hdl, bytes.data(), static_cast<int16_t>(bytes.size()));
    }
    int32_t decodeXer(std::string text) {
        return v2xcodec_xerDec(&m_hdl, reinterpret_cast<uint8_t*>(text.data()), static_cast<int32_t>(text.size()));
    }
    SPAT_t& spat() { return static_cast<MessageFrame_t*>(m_hdl)->choice.spatFrame; }
    ASNSTRUCT_HANDLE m_hdl = nullptr;
};

TEST_F(Codec, RejectsInvalidFrames) {
    const std::string spat = captured::spat;
    const std::tuple<std::string, int32_t, ASNSTRUCT_HANDLE> cases[] = {
        {spat.substr(0, spat.size() - 2), -2, nullptr},
        {"8100", -2, nullptr}, // a message of a newer edition: decoded, it would look like a SPAT without content
        {spat + "00", -3, MARK},
        {"", -1, MARK},
    };
    for (const auto& [digits, result, handle] : cases) {
        m_hdl = MARK;
        EXPECT_EQ(decode(hex(digits)), result) << digits;
        EXPECT_EQ(m_hdl, handle) << digits;
    }
    EXPECT_EQ(v2xcodec_xerDec(&m_hdl, &g_mark, 0), -1);
}

TEST_F(Codec, ReportsFullSizeForSmallBufferWithoutOverrun) {
    ASSERT_EQ(decode(hex(captured::spat)), 0);
    for (const int32_t room : {101, 0, -5}) {
        Bytes out(102, 0xA5);
        int16_t length = 0;
        EXPECT_EQ(v2xcodec_uperEnc(m_hdl, out.data(), room, &length), 0);
        EXPECT_EQ(length, 102);
        EXPECT_EQ(out.back(), 0xA5);
    }
    Bytes text(20, '#');
    uint32_t size = 19;
    EXPECT_EQ(v2xcodec_xerEnc(m_hdl, text.data(), &size), 0);
    EXPECT_GT(size, 2000U);
    EXPECT_EQ(text.back(), '#');
}

TEST_F(Codec, NamesTypeThatCannotBeEncoded) {
    ASSERT_EQ(decode(hex(captured::spat)), 0);
    uint8_t out[512];
    int16_t length = 7;
    uint32_t size = sizeof out;
    spat().msgCnt = 128;
    EXPECT_EQ(v2xcodec_uperEnc(m_hdl, out, sizeof out, &length), -2);
    spat().intersections.list.array[0]->phases.list.array[0]->phaseStates.list.array[0]->light = 99;
    EXPECT_EQ(v2xcodec_xerEnc(m_hdl, out, &size), -2);
    EXPECT_TRUE(length == 7 && size == sizeof out);
    EXPECT_EQ(takeLog().front(), "UPER 2 Coubld not encode MessageFrame at MsgCount");
}

TEST_F(Codec, RejectsInvalidXerAndIgnoresTrailingText) {
    for (const char* text :
         {"<", "<SPAT/>", "<MessageFrame><spatFrame><msgCnt>1</msgCnt>",
          "<MessageFrame><newFrame><a>1</a></newFrame></MessageFrame>", "<MessageFrame><a/></MessageFrame>"}) {
        m_hdl = MARK;
        EXPECT_EQ(decodeXer(text), -2) << text;
        EXPECT_EQ(m_hdl, MARK);
    }
    EXPECT_EQ(decodeXer("<MessageFrame><msgFrameExt><messageId>9</messageId><value>0A</value></msgFrameExt>"
                        "</MessageFrame>and more"),
              0);
}

TEST_F(Codec, TellsTypeAndReleases) {
    EXPECT_EQ(v2xcodec_getMsgType(&m_hdl, nullptr), V2XCODEC_MSG_UNKNOW);
    ASSERT_EQ(decode(hex(captured::spat)), 0);
    EXPECT_EQ(v2xcodec_getMsgType(&m_hdl, nullptr), V2XCODEC_MSG_SPAT);
    v2xcodec_freeStrcut(&m_hdl);
    EXPECT_EQ(m_hdl, nullptr);
    v2xcodec_freeStrcut(&m_hdl);
    v2xcodec_freeStrcut(nullptr);
    EXPECT_EQ(takeLog().size(), 2U);
}

// Under the thread sanitizer this shows what the message set's runtime shares between threads. Both threads share the
// failure count and together reach 200 failures. Every 202nd failure is logged.
TEST_F(Codec, WorksOnSeveralThreads) {
    const auto work = [] {
        for (int round = 0; round < 100; round++) {
            Bytes bytes = hex(round % 2 == 0 ? captured::spat : captured::bsm);
            Bytes out(bytes.size());
            int16_t length = 0;
            SPAT_t message = {};
            EXPECT_EQ(getSPATMsgCnt(&message), 0);
            ASNSTRUCT_HANDLE hdl = nullptr;
            EXPECT_EQ(v2xcodec_uperDec(&hdl, bytes.data(), 2), -2);
            ASSERT_EQ(v2xcodec_uperDec(&hdl, bytes.data(), static_cast<int16_t>(bytes.size())), 0);
            EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, hdl, nullptr, nullptr), 0);
            EXPECT_EQ(v2xcodec_uperEnc(hdl, out.data(), static_cast<int32_t>(out.size()), &length), 0);
            EXPECT_EQ(out, bytes);
            Bytes text(16384);
            auto size = static_cast<uint32_t>(text.size());
            EXPECT_EQ(v2xcodec_xerEnc(hdl, text.data(), &size), 0);
            v2xcodec_freeStrcut(&hdl);
            EXPECT_EQ(v2xcodec_xerDec(&hdl, text.data(), static_cast<int32_t>(size)), 0);
            v2xcodec_freeStrcut(&hdl);
        }
    };
    std::thread second(work);
    work();
    second.join();
    EXPECT_EQ(decode({0x36}), -2);
    EXPECT_EQ(takeLog().size(), 0U);
    EXPECT_EQ(decode({0x36}), -2);
    EXPECT_EQ(takeLog().size(), 1U);
}

} // namespace
