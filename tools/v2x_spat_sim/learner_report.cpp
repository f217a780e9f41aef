#include "learner_report.h"

namespace sim {
namespace {

constexpr uint8_t START_BYTE = 0xFE;
constexpr uint8_t REPORT_TYPE = 0x10;
constexpr size_t HEAD_SIZE = 5;
constexpr size_t LENGTH_AT = 3;
constexpr size_t COUNT_AT = 6;
constexpr size_t BODY_HEAD_SIZE = 3;
constexpr size_t RECORD_SIZE = 7;

uint8_t ColourCode(Colour colour) {
    constexpr uint8_t CODES[] = {1, 2, 3}; // green, red, yellow
    return CODES[static_cast<size_t>(colour)];
}

void PutLength(std::vector<uint8_t>& datagram, size_t length) {
    datagram[LENGTH_AT] = static_cast<uint8_t>(length >> 8);
    datagram[LENGTH_AT + 1] = static_cast<uint8_t>(length);
}

size_t LengthField(std::span<const uint8_t> datagram) {
    return static_cast<size_t>(datagram[LENGTH_AT] << 8 | datagram[LENGTH_AT + 1]);
}

void DamageStart(std::vector<uint8_t>& datagram, uint32_t random) {
    if (datagram.size() >= HEAD_SIZE) {
        datagram[random % 2] ^= static_cast<uint8_t>(1 + (random >> 1) % 255);
    }
}

// Changes the length by 1 to 64, up or down: a receiver is most likely to overlook a small error.
void DamageLength(std::vector<uint8_t>& datagram, uint32_t random) {
    if (datagram.size() >= HEAD_SIZE) {
        const size_t off = 1 + (random >> 1) % 64;
        PutLength(datagram, random % 2 == 0 ? LengthField(datagram) + off : LengthField(datagram) - off);
    }
}

void DamageCount(std::vector<uint8_t>& datagram, uint32_t random) {
    if (datagram.size() > COUNT_AT && datagram[COUNT_AT] < 255) {
        datagram[COUNT_AT] = static_cast<uint8_t>(datagram[COUNT_AT] + 1 + random % (255U - datagram[COUNT_AT]));
    }
}

} // namespace

std::vector<uint8_t> EncodeReport(std::span<const PhaseLight> lights) {
    std::vector<uint8_t> datagram = {START_BYTE, START_BYTE, REPORT_TYPE, 0, 0, 0, static_cast<uint8_t>(lights.size()),
                                     0};
    datagram.reserve(datagram.size() + lights.size() * RECORD_SIZE);
    for (const PhaseLight& light : lights) {
        datagram.insert(datagram.end(), {light.phase, ColourCode(light.colour), light.secondsLeft, 0, 0, 0, 0});
    }
    PutLength(datagram, datagram.size() - HEAD_SIZE);
    return datagram;
}

ReportKind ClassifyReport(std::span<const uint8_t> datagram) {
    if (datagram.size() < HEAD_SIZE || datagram[0] != START_BYTE || datagram[1] != START_BYTE ||
        datagram[2] != REPORT_TYPE) {
        return ReportKind::wrongStart;
    }
    if (LengthField(datagram) != datagram.size() - HEAD_SIZE || datagram.size() < HEAD_SIZE + BODY_HEAD_SIZE) {
        return ReportKind::wrongLength;
    }
    const size_t records = (datagram.size() - HEAD_SIZE - BODY_HEAD_SIZE) / RECORD_SIZE;
    return datagram[COUNT_AT] > records ? ReportKind::highCount : ReportKind::good;
}

void DamageReport(std::vector<uint8_t>& datagram, ReportKind kind, uint32_t random) {
    switch (kind) {
    case ReportKind::good:
        break;
    case ReportKind::wrongStart:
        return DamageStart(datagram, random);
    case ReportKind::wrongLength:
        return DamageLength(datagram, random);
    case ReportKind::highCount:
        return DamageCount(datagram, random);
    }
}

} // namespace sim
