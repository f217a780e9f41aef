// Messages to the service manager.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "v2x/v2xpub.h"

int32_t v2xpub_Notify(const char* message) {
    const char* const path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    const size_t length = path != nullptr ? std::strlen(path) : 0;
    if (message == nullptr || length == 0 || length > sizeof address.sun_path) {
        return -2;
    }
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    if (path[0] == '@') {
        address.sun_path[0] = '\0'; // an abstract address
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const ssize_t sent = sendto(fd, message, std::strlen(message), MSG_DONTWAIT | MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address),
                                static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
    close(fd);
    return sent >= 0 ? 0 : -3;
}
