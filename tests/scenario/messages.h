// Messages of the stack application and of the log tool, made by hand.
#pragma once

#include "bytes.h"

// A reply with one encoded message of at most 20467 bytes: header, data block, item.
inline Bytes replyWith(const Bytes& message) {
    const auto le16 = [](size_t number) {
        return Bytes{static_cast<uint8_t>(number & 0xFF), static_cast<uint8_t>(number >> 8)};
    };
    Bytes reply;
    for (const Bytes& part :
         {hex("A55A 04 00 0000000000000000 1500"), le16(11 + 2 + message.size()), hex("00 0B000000"), hex("0100 0000"),
          le16(2 + message.size()), hex("00"), le16(message.size()), message}) {
        reply.insert(reply.end(), part.begin(), part.end());
    }
    return reply;
}

// Asks for the levels of all tags.
inline const Bytes LOG_REQUEST = hex("A55A 04 00 0000000000000000 3200 0500 00  01 0000 0000");
