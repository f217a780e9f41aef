#include "spat_conv_time.h"

#include <ctime>

namespace {

constexpr uint64_t MICROSECONDS_PER_SECOND = 1000000;

} // namespace

int32_t GetMoyOfTheYear(v2xlog_tag_t& tag, uint64_t now) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(tag, ret);
    const time_t seconds = static_cast<time_t>(now / MICROSECONDS_PER_SECOND);
    tm local = {};
    localtime_r(&seconds, &local);
    return ret = (local.tm_yday * 24 + local.tm_hour) * 60 + local.tm_min;
}

int32_t GetSecMarkOfTheMinute(v2xlog_tag_t& tag, uint64_t now) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(tag, ret);
    return ret = static_cast<int32_t>(now / 1000 % 60000);
}
