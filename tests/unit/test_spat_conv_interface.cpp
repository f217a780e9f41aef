#include <gtest/gtest.h>
#include <tuple>

#include "fakes.h"
#include "spat_conv_interface.h"
#include "spat_conv_signal_learner_quor.h"
#include "spat_conv_signal_machine_1743.h"
#include "spat_conv_stack_interface.h"
#include "spat_conv_v2xcloud_dds.h"

namespace {

void routine(void* /*arg*/) {}

TEST(TaskCreat, HandsTheTaskServiceWhatItNeeds) {
    V2X_TASKHANDLE handle = nullptr;
    EXPECT_EQ(v2xspatconv_TaskCreat("a name that is longer than thirty-one characters", 7000, routine, &handle), 0);
    EXPECT_NE(handle, nullptr);
    ASSERT_EQ(fakes::tasks.size(), 1U);
    const v2xpub_TaskInitPara_t& para = fakes::tasks[0].para;
    EXPECT_STREQ(para.m_taskName, "a name that is longer than thir");
    EXPECT_EQ(para.m_priority, 50U);
    EXPECT_EQ(para.m_intervals, 7000U);
    EXPECT_EQ(para.m_tskType, V2XTASK_TYPE_RR);
    EXPECT_EQ(para.f_tskFunExec, routine);
    EXPECT_TRUE(para.f_tskFunEnter == nullptr && para.f_tskFunExit == nullptr && para.mp_arg == nullptr);
    EXPECT_FALSE(para.m_isOneShot || para.m_eventTrigFlag);

    EXPECT_EQ(v2xspatconv_TaskCreat(nullptr, 1, routine, nullptr), -2);
    EXPECT_EQ(v2xspatconv_TaskCreat("a", 1, nullptr, nullptr), -2);
    EXPECT_EQ(fakes::logged("input param error").size(), 2U);
    fakes::taskResults["a"] = -3;
    EXPECT_EQ(v2xspatconv_TaskCreat("a", 1, routine, nullptr), -6);
    EXPECT_EQ(fakes::logged(" Task create error ret=-3").front().level, 2);
}

TEST(TaskInit, CreatesTheTableAndStopsAtTheFirstFailure) {
    EXPECT_EQ(v2xspatconv_TaskInit(), 0);
    std::vector<std::tuple<std::string, uint32_t, v2xpub_taskFun>> made;
    for (const fakes::Task& task : fakes::tasks) {
        made.emplace_back(task.para.m_taskName, task.para.m_intervals, task.para.f_tskFunExec);
    }
    const decltype(made) expected = {{"spat_conv_stat", 5000000, SendSpatConvStatusToCommSoft},
                                     {"Get_SPAT_Data", 600000, SendGetSpatDataToAPPTaskFun},
                                     {"Deal_SPAT_Data", 300000, DealSpatDataRecvTaskFun},
                                     {"DIS_QUOR_SIGN", 5000000, v2xspatconv_DisplayQuorSignalInfo},
                                     {"DIS_1743_SIGN", 5000000, v2xspatconv_Display1743SignalInfo}};
    EXPECT_TRUE(made == expected);
    fakes::tasks.clear();
    int32_t code = -7;
    for (const char* name : {"DIS_1743_SIGN", "DIS_QUOR_SIGN", "Deal_SPAT_Data", "Get_SPAT_Data", "spat_conv_stat"}) {
        fakes::taskResults[name] = -3;
        EXPECT_EQ(v2xspatconv_TaskInit(), ++code); // the first failure counts
    }
    EXPECT_EQ(fakes::logged("Creat spat_conv_status error").size(), 1U);
}

TEST(StatusTask, PublishesTheRecordAsItLiesInMemory) {
    SendSpatConvStatusToCommSoft(nullptr); // before the channel is open: nowhere
    v2xcloud_ddsInit("RSU0001");
    const service_status_t st = {.service_type = 2,
                                 .run_status = 1,
                                 .tx_packet_count = 0x01020304,
                                 .tx_last_timestamp = 0x1112131415161718,
                                 .rx_packet_count = 5,
                                 .rx_last_timestamp = 6};
    v2xspatconv_SetSpatConvStatus(&st);
    SendSpatConvStatusToCommSoft(nullptr);
    EXPECT_TRUE(fakes::ddsSent.empty());
    EXPECT_EQ(fakes::logged("Don't match:/pelko/v2x/cloud/service_status").front().level, 3);
    fakes::ddsMatched["/pelko/v2x/cloud/service_status"] = 1;
    SendSpatConvStatusToCommSoft(nullptr);
    ASSERT_EQ(fakes::ddsSent.size(), 1U);
    EXPECT_EQ(fakes::ddsSent[0].topic, "/pelko/v2x/cloud/service_status");
    EXPECT_EQ(fakes::ddsSent[0].bytes, fakes::hex("02 01 04030201 1817161514131211 05000000 0600000000000000"));
}

TEST(Status, GettersGiveTypeAndRunStatusOnly) {
    service_status_t st = {.service_type = 9,
                           .run_status = 9,
                           .tx_packet_count = 1,
                           .tx_last_timestamp = 2,
                           .rx_packet_count = 3,
                           .rx_last_timestamp = 4};
    v2xspatconv_GetCloudStatus(&st);
    EXPECT_EQ(st.service_type, 5);
    EXPECT_EQ(st.run_status, 0) << "the cloud has not reported yet";
    const service_status_t own = {.service_type = 2, .run_status = 2, .tx_packet_count = 10, .rx_packet_count = 30};
    v2xspatconv_SetSpatConvStatus(&own);
    v2xspatconv_GetSpatConvStatus(&st);
    EXPECT_EQ(st.service_type, 2);
    EXPECT_EQ(st.run_status, 2);
    EXPECT_EQ(uint32_t{st.tx_packet_count}, 1U);
    EXPECT_EQ(uint64_t{st.rx_last_timestamp}, 4U);
}

} // namespace
