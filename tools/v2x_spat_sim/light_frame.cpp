#include "light_frame.h"

#include <algorithm>
#include <bit>

namespace sim {
namespace {

constexpr uint8_t CONTROL_TYPE = 0x87;
constexpr uint16_t OBJECT_ID = 0x0103;
constexpr size_t HEAD_SIZE = 31;
constexpr size_t LENGTH_SIZE = 2;

// The latitude contains the byte DB and the elevation contains C0, so that every frame contains escapes.
constexpr float LONGITUDE = 116.39F;
constexpr float LATITUDE = 39.964F;
constexpr uint16_t ELEVATION = 0x00C0;

constexpr size_t ARMS = 4;

// A lamp group shows the light of one movement of its arm. The movements of the four arms are consecutive, from
// `firstMovement`.
struct LampGroup {
    uint8_t type;
    size_t firstMovement;
};
constexpr LampGroup GROUPS[] = {{1, 0}, {2, ARMS}, {3, 0}, {8, 0}, {9, 0}};

uint8_t ColourBits(Colour colour) {
    constexpr uint8_t BITS[] = {0x20, 0x02, 0x08}; // green, red, yellow
    return BITS[static_cast<size_t>(colour)];
}

void Append(std::vector<uint8_t>& bytes, uint32_t value, size_t size) {
    for (size_t at = 0; at < size; ++at) {
        bytes.push_back(static_cast<uint8_t>(value >> 8 * at));
    }
}

std::vector<uint8_t> EncodeHead(uint64_t microseconds) {
    std::vector<uint8_t> head = {
        0x01, 0x00,                               // link code
        0x11, 0x01, 0x08, 0x01, 0x00, 0x01, 0x00, // sender: division, device type 1, device 1
        0x11, 0x01, 0x08, 0x02, 0x00, 0x01, 0x00, // receiver: the same division, device type 2, device 1
    };
    Append(head, static_cast<uint32_t>(microseconds / 1'000'000), 4);
    Append(head, static_cast<uint32_t>(microseconds / 1'000 % 1'000), 2);
    head.insert(head.end(), {1, 1, CONTROL_TYPE}); // time to live, version
    Append(head, OBJECT_ID, 2);
    head.insert(head.end(), {0, 0, 0, 0}); // sign id, reserved
    return head;
}

void AppendLink(std::vector<uint8_t>& payload, std::span<const PhaseLight> movements, size_t link, unsigned groups) {
    const size_t arm = link % ARMS;
    Append(payload, static_cast<uint32_t>(arm * 90), 2);
    payload.push_back(static_cast<uint8_t>(groups));
    for (size_t group = 0; group < groups; ++group) {
        const auto& [type, firstMovement] = GROUPS[group % std::size(GROUPS)];
        const PhaseLight& light = movements[firstMovement + arm];
        const auto id = static_cast<uint8_t>(link * groups + group + 1);
        payload.insert(payload.end(), {id, type, ColourBits(light.colour), light.secondsLeft});
    }
}

// Appends a link from the north with one lamp group.
void AppendAdditionalLink(std::vector<uint8_t>& payload, const PhaseLight& light, uint8_t id) {
    constexpr uint8_t UNKNOWN_TYPE = 4;
    const uint8_t type = light.phase == 0 ? UNKNOWN_TYPE : GROUPS[0].type;
    Append(payload, 0, 2);
    payload.insert(payload.end(), {1, id, type, ColourBits(light.colour), light.secondsLeft});
}

// Returns true if the payload contains as many links and groups as its counts say. Ignores bytes after the last group.
bool DoCountsFit(std::span<const uint8_t> payload) {
    size_t at = LINKS_AT;
    for (size_t link = 0; link < payload[LINK_COUNT_AT]; ++link) {
        if (payload.size() < at + LINK_HEAD_SIZE) {
            return false;
        }
        at += LINK_HEAD_SIZE + payload[at + LINK_HEAD_SIZE - 1] * GROUP_SIZE;
    }
    return at <= payload.size();
}

FrameKind ClassifyPayload(std::span<const uint8_t> payload) {
    if (payload.size() < LINKS_AT) {
        return FrameKind::wrongLength;
    }
    if (payload[CONTROL_TYPE_AT] != CONTROL_TYPE ||
        (payload[OBJECT_ID_AT] | payload[OBJECT_ID_AT + 1] << 8) != OBJECT_ID) {
        return FrameKind::wrongType;
    }
    return DoCountsFit(payload) ? FrameKind::good : FrameKind::wrongCount;
}

// Computes CRC-16/MODBUS.
uint16_t Crc16(std::span<const uint8_t> bytes) {
    constexpr uint32_t POLYNOMIAL = 0xA001;
    uint32_t crc = 0xFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ POLYNOMIAL : crc >> 1;
        }
    }
    return static_cast<uint16_t>(crc);
}

bool IsCrcRight(std::span<const uint8_t> body) {
    if (body.size() < CRC_SIZE) {
        return false;
    }
    const std::span<const uint8_t> crc = body.last(CRC_SIZE);
    return (crc[0] | crc[1] << 8) == Crc16(body.first(body.size() - CRC_SIZE));
}

} // namespace

std::vector<uint8_t> EncodePayload(std::span<const PhaseLight> lights, FrameShape shape, uint64_t microseconds) {
    constexpr size_t LENGTH_AT = HEAD_SIZE;
    const std::span<const PhaseLight> movements = lights.last(MOVEMENTS);
    const unsigned additional = lights.size() > MOVEMENTS ? 1 : 0;
    std::vector<uint8_t> payload = EncodeHead(microseconds);
    Append(payload, 0, LENGTH_SIZE);
    Append(payload, std::bit_cast<uint32_t>(LONGITUDE), 4);
    Append(payload, std::bit_cast<uint32_t>(LATITUDE), 4);
    Append(payload, ELEVATION, 2);
    payload.push_back(static_cast<uint8_t>(shape.links + additional));
    for (size_t link = 0; link < shape.links; ++link) {
        AppendLink(payload, movements, link, shape.groups);
    }
    if (additional > 0) {
        AppendAdditionalLink(payload, lights.front(), static_cast<uint8_t>(shape.links * shape.groups + 1));
    }
    const size_t length = payload.size() - LENGTH_AT - LENGTH_SIZE;
    payload[LENGTH_AT] = static_cast<uint8_t>(length);
    payload[LENGTH_AT + 1] = static_cast<uint8_t>(length >> 8);
    return payload;
}

std::vector<uint8_t> AppendCrc(std::vector<uint8_t> payload) {
    Append(payload, Crc16(payload), CRC_SIZE);
    return payload;
}

std::vector<uint8_t> WrapFrame(std::span<const uint8_t> body) {
    std::vector<uint8_t> frame = {DELIMITER};
    for (const uint8_t byte : body) {
        if (byte == DELIMITER || byte == ESCAPE) {
            frame.insert(frame.end(), {ESCAPE, byte == DELIMITER ? ESCAPED_DELIMITER : ESCAPED_ESCAPE});
        } else {
            frame.push_back(byte);
        }
    }
    frame.push_back(DELIMITER);
    return frame;
}

std::optional<UnwrappedFrame> UnwrapFrame(std::span<const uint8_t> frame) {
    if (frame.size() < 2 || frame.front() != DELIMITER || frame.back() != DELIMITER ||
        std::ranges::count(frame, DELIMITER) != 2) {
        return std::nullopt;
    }
    UnwrappedFrame opened{{}, true, false};
    for (size_t at = 1; at + 1 < frame.size(); ++at) {
        const bool isEscaped =
            frame[at] == ESCAPE && (frame[at + 1] == ESCAPED_DELIMITER || frame[at + 1] == ESCAPED_ESCAPE);
        if (isEscaped) {
            ++at;
            opened.body.push_back(frame[at] == ESCAPED_DELIMITER ? DELIMITER : ESCAPE);
        } else {
            opened.isWellEscaped = opened.isWellEscaped && frame[at] != ESCAPE;
            opened.body.push_back(frame[at]);
        }
    }
    opened.isCrcRight = IsCrcRight(opened.body);
    return opened;
}

FrameKind ClassifyFrame(std::span<const uint8_t> frame) {
    const std::optional<UnwrappedFrame> opened = UnwrapFrame(frame);
    if (!opened) {
        return FrameKind::wrongDelimiter;
    }
    if (!opened->isWellEscaped) {
        return FrameKind::wrongEscape;
    }
    if (!opened->isCrcRight) {
        return FrameKind::wrongCrc;
    }
    return ClassifyPayload(std::span(opened->body).first(opened->body.size() - CRC_SIZE));
}

} // namespace sim
