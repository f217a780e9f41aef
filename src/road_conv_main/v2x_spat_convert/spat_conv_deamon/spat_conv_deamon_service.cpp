#include "spat_conv_deamon_service.h"

#include <algorithm>
#include <cstdlib>
#include <sysexits.h>
#include <systemd/sd-daemon.h>

#include "v2x/v2xpub.h"

void v2xspatconv_ServiceReady(void) {
    sd_notify(0, "READY=1");
}

void v2xspatconv_ServiceStopping(void) {
    v2xpub_Notify("STOPPING=1");
}

bool v2xspatconv_ServiceStatus(const std::string& line) {
    return v2xpub_Notify(("STATUS=" + line).c_str()) == 0;
}

int32_t v2xspatconv_ServiceRefusedStatus(void) {
    return getenv("NOTIFY_SOCKET") != nullptr ? EX_CONFIG : 0;
}

void v2xspatconv_ServiceAlive(void) {
    if (sd_watchdog_enabled(0, nullptr) > 0) {
        v2xpub_Notify("WATCHDOG=1");
    }
}

int32_t v2xspatconv_ServiceInterval(int32_t maxInterval) {
    uint64_t microseconds = 0;
    if (sd_watchdog_enabled(0, &microseconds) <= 0) {
        return maxInterval;
    }
    const uint64_t half = std::max<uint64_t>(microseconds / 2000, 1);
    return static_cast<int32_t>(std::min<uint64_t>(half, static_cast<uint64_t>(maxInterval)));
}
