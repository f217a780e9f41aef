#include "spat_conv_deamon_service.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <sysexits.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace {

constexpr char NOTIFY_SOCKET[] = "NOTIFY_SOCKET";

// Sends a message to the service manager, or drops the message if the manager's socket is full. sd_notify would wait
// until the manager reads its socket. Returns true if the message is sent.
bool NotifyUnlessFull(const std::string& message) {
    const char* const path = getenv(NOTIFY_SOCKET);
    sockaddr_un address = {};
    const size_t length = path != nullptr ? strlen(path) : 0;
    if (length == 0 || length > sizeof address.sun_path) {
        return false;
    }
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, length);
    if (path[0] == '@') {
        address.sun_path[0] = '\0'; // an abstract address
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const ssize_t sent = sendto(fd, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address),
                                static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
    close(fd);
    return sent >= 0;
}

} // namespace

void v2xspatconv_ServiceReady(void) {
    sd_notify(0, "READY=1");
}

void v2xspatconv_ServiceStopping(void) {
    NotifyUnlessFull("STOPPING=1");
}

bool v2xspatconv_ServiceStatus(const std::string& line) {
    return NotifyUnlessFull("STATUS=" + line);
}

int32_t v2xspatconv_ServiceRefusedStatus(void) {
    return getenv(NOTIFY_SOCKET) != nullptr ? EX_CONFIG : 0;
}

void v2xspatconv_ServiceAlive(void) {
    // Without a watchdog the service manager may not read its socket, and a full socket would block the caller.
    if (sd_watchdog_enabled(0, nullptr) > 0) {
        sd_notify(0, "WATCHDOG=1");
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
