// Copies datagrams to the journal.
#include <cstdio>

#include "v2x/v2xjournal.h"
#include "v2xpub_udp.h"

void v2xpub_Tap(const v2xpub_udpSocket& socket, bool isSent, const sockaddr_in& remote, const uint8_t* data,
                ssize_t length) {
    if (!v2x_journal::Wants(v2x_journalKind::datagram)) {
        return;
    }
    v2xpub_tap_t tap = {};
    tap.time = v2xpub_CommGetCurrentTime64();
    tap.isSent = isSent;
    snprintf(tap.socket, sizeof tap.socket, "%s", socket.name.c_str());
    tap.local = socket.local;
    tap.remote = v2xpub_ReadAddress(&remote, sizeof remote);
    v2x_journal::WriteRecord(v2x_journalKind::datagram, tap, {data, static_cast<size_t>(length)});
}
