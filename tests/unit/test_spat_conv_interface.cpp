#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixture.h"
#include "spat_conv_interface.h"
#include "spat_conv_interface_tasks.h"
#include "spat_conv_v2xcloud_dds.h"

namespace {

using testing::ElementsAre;

using Interface = fakes::Fixture;

void routine(void* /*arg*/) {}

TEST_F(Interface, TaskCreatPassesItsParametersToTheTaskService) {
    V2X_TASKHANDLE handle = nullptr;
    EXPECT_EQ(v2xspatconv_TaskCreat("a name that is longer than thirty-one characters", 7000, routine, &handle), 0);
    const v2xpub_TaskInitPara_t& para = fakes::tasks.at(0).para;
    EXPECT_STREQ(para.m_taskName, "a name that is longer than thir");
    EXPECT_EQ(para.m_priority, 50U);
    EXPECT_EQ(para.m_intervals, 7000U);
    EXPECT_EQ(para.m_tskType, V2XTASK_TYPE_RR);
    EXPECT_EQ(para.f_tskFunExec, routine);
    fakes::maxTasks = 1;
    EXPECT_EQ(v2xspatconv_TaskCreat("a", 1, routine, nullptr), -6);
    EXPECT_THAT(fakes::takeLog(), ElementsAre("INTF 2  Task create error ret=-3"));
}

TEST_F(Interface, TaskInitCreatesTheTableAndStopsAtTheFirstFailure) {
    EXPECT_EQ(v2xspatconv_TaskInit(), 0);
    std::vector<std::pair<std::string, uint32_t>> created;
    for (const fakes::Task& task : fakes::tasks) {
        created.emplace_back(task.para.m_taskName, task.para.m_intervals);
    }
    EXPECT_THAT(created, ElementsAre(std::pair("spat_conv_stat", 5000000U), std::pair("Get_SPAT_Data", 600000U),
                                     std::pair("Deal_SPAT_Data", 300000U), std::pair("DIS_QUOR_SIGN", 5000000U),
                                     std::pair("DIS_1743_SIGN", 5000000U)));
    for (int32_t row = 0; row < 5; row++) {
        fakes::reset();
        fakes::maxTasks = static_cast<size_t>(row);
        EXPECT_EQ(v2xspatconv_TaskInit(), -2 - row);
    }
    EXPECT_EQ(fakes::logged("Creat DIS_1743_SIGN error").size(), 1U);
}

TEST_F(Interface, StatusTaskPublishesTheRecordAsItIsInMemory) {
    v2xcloud_ddsInit("RSU0001");
    ASSERT_EQ(v2xspatconv_TaskInit(), 0);
    const service_status_t st = {.service_type = 2,
                                 .run_status = 1,
                                 .tx_packet_count = 0x01020304,
                                 .tx_last_timestamp = 0x1112131415161718,
                                 .rx_packet_count = 5,
                                 .rx_last_timestamp = 6};
    v2xspatconv_SetSpatConvStatus(st);
    fakes::tasks[0].run();
    EXPECT_THAT(fakes::takeLog(), ElementsAre("SDDS 3 Don't match:/pelko/v2x/cloud/service_status"));
    fakes::ddsMatched["/pelko/v2x/cloud/service_status"] = 1;
    fakes::tasks[0].run();
    ASSERT_EQ(fakes::ddsSent.size(), 1U);
    EXPECT_EQ(fakes::ddsSent[0].topic, "/pelko/v2x/cloud/service_status");
    EXPECT_EQ(fakes::ddsSent[0].bytes, hex("02 01 04030201 1817161514131211 05000000 0600000000000000"));
}

TEST_F(Interface, StatusGettersSetTypeAndRunStatusOnly) {
    service_status_t st = {.service_type = 9,
                           .run_status = 9,
                           .tx_packet_count = 1,
                           .tx_last_timestamp = 2,
                           .rx_packet_count = 3,
                           .rx_last_timestamp = 4};
    v2xspatconv_SetSpatConvStatus({.service_type = 1, .run_status = 2, .tx_packet_count = 10, .rx_packet_count = 30});
    v2xspatconv_GetSpatConvStatus(st);
    EXPECT_EQ(st.service_type * 10 + st.run_status, 22);
    EXPECT_EQ(uint32_t{st.tx_packet_count}, 1U);
}

} // namespace
