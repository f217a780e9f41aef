#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixture.h"
#include "spat_conv_interface.h"
#include "spat_conv_v2xcloud_dds.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

const char STATUS_OUT[] = "/pelko/v2x/cloud/service_status";
const char STATUS_IN[] = "/pelko/cloud/v2x/service_status";

class Cloud : public fakes::Fixture {
protected:
    Cloud() { v2xspatconv_SetCloudStatus(0); }
    int32_t send(const char* topic, const Bytes& bytes) const {
        return v2xcloud_ddsSend(info->dds_object, topic, bytes.data(), static_cast<unsigned int>(bytes.size()));
    }
    static uint8_t cloudStatus() {
        service_status_t status;
        v2xspatconv_GetCloudStatus(status);
        return status.run_status;
    }

    v2xcloud_comm_ddsinfo* info = v2xspatconv_GetddsInfo();
};

TEST_F(Cloud, OpensTheChannelInOrder) {
    ASSERT_EQ(v2xcloud_ddsInit("RSU0001"), 0);
    EXPECT_THAT(fakes::journal,
                ElementsAre("dds.create_dds", "dds.dds_reg 200 /pelko/v2x/cloud/service_status writer",
                            "dds.set_history_qos /pelko/v2x/cloud/service_status 2 0",
                            "dds.dds_reg 200 /pelko/cloud/v2x/service_status reader",
                            "dds.set_history_qos /pelko/cloud/v2x/service_status 2 0",
                            "dds.dds_reg 200 rsu/RSU0001/spat/up writer", "dds.set_history_qos rsu/RSU0001/spat/up 2 0",
                            "dds.dds_reg 200 rsu/RSU0001/spat/down reader",
                            "dds.set_history_qos rsu/RSU0001/spat/down 2 0", "dds.set_white_list_iface 127.0.0.1",
                            "dds.dds_start"));
    EXPECT_FALSE(info->cloud_available);
}

TEST_F(Cloud, TruncatesTopicNamesTo127Characters) {
    EXPECT_EQ(v2xcloud_ddsInit(std::string(130, 'x').c_str()), 0);
    EXPECT_EQ(info->mp_spat_up_topic, "rsu/" + std::string(123, 'x'));
    EXPECT_EQ(info->mp_spat_down_topic, "rsu/" + std::string(123, 'x'));
}

TEST_F(Cloud, SendsAByteAfterAMultipleOf1024) {
    v2xcloud_ddsInit("RSU0001");
    fakes::ddsMatched[info->mp_spat_up_topic] = 1;
    for (const size_t length : {1023, 1024, 1025, 20480}) {
        fakes::ddsSent.clear();
        const Bytes payload(length, 7);
        EXPECT_EQ(send(info->mp_spat_up_topic, payload), 0);
        std::vector<Bytes> expected = {payload};
        if (length % 1024 == 0) {
            expected.push_back({0});
        }
        std::vector<Bytes> sent;
        for (const fakes::DdsSample& sample : fakes::ddsSent) {
            EXPECT_EQ(sample.topic, "rsu/RSU0001/spat/up");
            sent.push_back(sample.bytes);
        }
        EXPECT_EQ(sent, expected) << length;
    }
}

TEST_F(Cloud, SendsNothingWithoutAReader) {
    v2xcloud_ddsInit("RSU0001");
    fakes::ddsMatched[STATUS_OUT] = 2;
    EXPECT_EQ(send(info->mp_spat_up_topic, {1}), 0);
    EXPECT_THAT(fakes::ddsSent, IsEmpty());
    ASSERT_EQ(fakes::logged("Don't match:rsu/RSU0001/spat/up").size(), 1U);
    EXPECT_EQ(fakes::logged("Don't match:rsu/RSU0001/spat/up")[0].level, 3);
    EXPECT_EQ(send(info->mp_spat_conv_send_topic, {1}), 0);
    EXPECT_EQ(fakes::ddsSent.size(), 1U);
    EXPECT_EQ(countsOf("cloud"), (PathCounts{{"sent", 1}, {"unmatched", 1}}));
}

TEST_F(Cloud, SendsNothingAfterTheChannelIsClosed) {
    v2xcloud_ddsInit("RSU0001");
    fakes::ddsMatched[info->mp_spat_up_topic] = 1;
    EXPECT_EQ(v2xcloud_ddsExit(info), 0);
    EXPECT_EQ(send(info->mp_spat_up_topic, {1}), 0);
    EXPECT_THAT(fakes::ddsSent, IsEmpty());
    EXPECT_EQ(v2xcloud_ddsExit(info), 0);
    EXPECT_EQ(fakes::logged("Don't match:rsu/RSU0001/spat/up").size(), 1U);
}

TEST_F(Cloud, StoresTheCloudsStatus) {
    v2xcloud_ddsInit("RSU0001");
    EXPECT_EQ(cloudStatus(), 0);
    const struct {
        const char* sample;
        uint8_t status; // afterwards
    } steps[] = {
        {"05 01", 1},
        {"05 02 00000000 0000000000000000 00000000 0000000000000000", 2},
        {"02 01 00000000 0000000000000000 00000000 0000000000000000", 2},
        {"05", 2},
        {"05 FF 07", 255},
    };
    for (const auto& step : steps) {
        fakes::ddsReceive(STATUS_IN, hex(step.sample));
        EXPECT_EQ(cloudStatus(), step.status) << step.sample;
    }
    EXPECT_EQ(countsOf("cloud_status"), (PathCounts{{"accepted", 3}, {"other_service", 1}, {"too_short", 1}}));
}

} // namespace
