// The message set's codec against frames that an independent encoder made and read: tests/data/uper.
#include <algorithm>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>

#include "bytes.h"
#include "msgset_leaves.h"

namespace {

const char* const kFiles[] = {"captured", "bsm", "map", "rsm", "spat", "rsi", "msgFrameExt"};

struct Frame {
    std::string name;
    Bytes bytes;
    size_t leafCount = 0;
    std::string leafCrc;
    std::vector<std::string> leaves; // all, or some of many
};

std::string path(const std::string& leaf) {
    return leaf.substr(0, leaf.find(" = "));
}

std::vector<Frame> load(const std::string& file) {
    std::ifstream in(V2X_TEST_DATA "/uper/" + file + ".txt");
    std::vector<Frame> frames;
    for (std::string line; std::getline(in, line);) {
        std::istringstream words(line);
        std::string first;
        std::string rest;
        words >> first >> rest;
        if (first == "frame") {
            frames.emplace_back().name = rest;
        } else if (first == "hex") {
            const Bytes more = hex(rest);
            frames.back().bytes.insert(frames.back().bytes.end(), more.begin(), more.end());
        } else if (first == "leaves") {
            frames.back().leafCount = std::stoul(rest);
            words >> frames.back().leafCrc;
        } else if (!first.empty() && first != "#") {
            frames.back().leaves.push_back(line);
        }
    }
    EXPECT_FALSE(frames.empty()) << file;
    return frames;
}

struct Release {
    void operator()(MessageFrame_t* frame) const { ASN_STRUCT_FREE(asn_DEF_MessageFrame, frame); }
};
using Message = std::unique_ptr<MessageFrame_t, Release>;

Message decode(asn_transfer_syntax syntax, const Bytes& bytes) {
    void* decoded = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, &decoded, bytes.data(), bytes.size());
    Message message(static_cast<MessageFrame_t*>(decoded));
    EXPECT_EQ(result.code, RC_OK);
    const size_t left = syntax == ATS_BASIC_XER ? 1 : 0; // its last line's end
    EXPECT_EQ(result.consumed + left, bytes.size());
    return result.code == RC_OK ? std::move(message) : nullptr;
}

asn_enc_rval_t encode(asn_transfer_syntax syntax, const Message& message, uint8_t* bytes, size_t room) {
    return asn_encode_to_buffer(nullptr, syntax, &asn_DEF_MessageFrame, message.get(), bytes, room);
}

Bytes encode(asn_transfer_syntax syntax, const Message& message) {
    const ssize_t size = encode(syntax, message, nullptr, 0).encoded;
    EXPECT_GT(size, 0);
    Bytes bytes(static_cast<size_t>(std::max<ssize_t>(size, 0)));
    EXPECT_EQ(encode(syntax, message, bytes.data(), bytes.size()).encoded, size);
    return bytes;
}

std::string joined(const std::vector<std::string>& lines) {
    std::string all;
    for (const std::string& line : lines) {
        all += line + "\n";
    }
    return all;
}

void expectBytes(const Bytes& made, const Bytes& expected) {
    const auto [at, at2] = std::mismatch(made.begin(), made.end(), expected.begin(), expected.end());
    EXPECT_TRUE(at == made.end() && at2 == expected.end())
        << made.size() << " bytes instead of " << expected.size() << ", alike up to byte " << at - made.begin();
}

void expectLeaves(const Frame& frame, const std::vector<std::string>& leaves) {
    std::set<std::string> paths;
    for (const std::string& leaf : frame.leaves) {
        paths.insert(path(leaf));
    }
    std::vector<std::string> shown;
    for (const std::string& leaf : leaves) {
        if (frame.leaves.size() == frame.leafCount || paths.contains(path(leaf))) {
            shown.push_back(leaf);
        }
    }
    EXPECT_EQ(joined(shown), joined(frame.leaves));
    EXPECT_EQ(leaves.size(), frame.leafCount);
    EXPECT_EQ(hexDigits(crc32(joined(leaves)), 8), frame.leafCrc)
        << "all leaves:\n"
        << (shown.size() < leaves.size() ? joined(leaves) : "");
}

bool hasMark(const MsgsetReading& reading, const char* end) {
    return std::any_of(reading.marks.begin(), reading.marks.end(),
                       [end](const std::string& mark) { return mark.ends_with(end); });
}

class MsgsetVectors : public testing::TestWithParam<const char*> {};

TEST_P(MsgsetVectors, ReadAndMadeAsTheIndependentEncoderDoes) {
    for (const Frame& frame : load(GetParam())) {
        SCOPED_TRACE(frame.name);
        const Message message = decode(ATS_UNALIGNED_CANONICAL_PER, frame.bytes);
        if (message == nullptr) {
            continue;
        }
        const MsgsetReading reading = readMsgset(asn_DEF_MessageFrame, message.get());
        expectLeaves(frame, reading.leaves);
        char why[200] = "";
        size_t room = sizeof(why);
        EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, message.get(), why, &room), 0) << why;
        expectBytes(encode(ATS_UNALIGNED_CANONICAL_PER, message), frame.bytes);
        for (const asn_transfer_syntax xer : {ATS_BASIC_XER, ATS_CANONICAL_XER}) {
            SCOPED_TRACE(xer);
            const Message again = decode(xer, encode(xer, message));
            if (again != nullptr) {
                expectBytes(encode(ATS_UNALIGNED_CANONICAL_PER, again), frame.bytes);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, MsgsetVectors, testing::ValuesIn(kFiles),
                         [](const auto& file) { return std::string(file.param); });

// What a newer edition added is passed over: additions are skipped, an alternative reads as none, an enumerated value
// as the type's first; everything else reads as it was written. What was read can be made again, unless with no
// alternative.
TEST(MsgsetVectorsNewer, ReadWithoutWhatIsNew) {
    for (const Frame& frame : load("newer")) {
        SCOPED_TRACE(frame.name);
        const Message message = decode(ATS_UNALIGNED_CANONICAL_PER, frame.bytes);
        if (message == nullptr) {
            continue;
        }
        const MsgsetReading reading = readMsgset(asn_DEF_MessageFrame, message.get());
        expectLeaves(frame, reading.leaves);
        for (const asn_transfer_syntax syntax : {ATS_UNALIGNED_CANONICAL_PER, ATS_BASIC_XER}) {
            SCOPED_TRACE(syntax);
            if (hasMark(reading, " = none")) {
                EXPECT_EQ(encode(syntax, message, nullptr, 0).encoded, -1);
            } else if (const Message again = decode(syntax, encode(syntax, message)); again != nullptr) {
                expectLeaves(frame, readMsgset(asn_DEF_MessageFrame, again.get()).leaves);
            }
        }
    }
}

TEST(MsgsetVectorsCut, AreRefusedWhereverTheyEnd) {
    for (const char* file : {"captured", "bsm", "spat", "newer"}) {
        for (const Frame& frame : load(file)) {
            SCOPED_TRACE(std::string(file) + " " + frame.name);
            for (size_t size = 0; size < std::min<size_t>(frame.bytes.size(), 400); ++size) {
                const Bytes cut(frame.bytes.begin(), frame.bytes.begin() + static_cast<ptrdiff_t>(size));
                void* decoded = nullptr;
                const asn_dec_rval_t result = asn_decode(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame,
                                                         &decoded, cut.data(), cut.size());
                const Message message(static_cast<MessageFrame_t*>(decoded));
                EXPECT_NE(result.code, RC_OK) << size << " bytes";
            }
        }
    }
}

TEST(MsgsetVectorsCoverage, EveryTypeEndOfRangeEnumeratedValueAlternativeAndOptionalPart) {
    std::set<std::string> met;
    for (const char* file : kFiles) {
        for (const Frame& frame : load(file)) {
            if (const Message message = decode(ATS_UNALIGNED_CANONICAL_PER, frame.bytes); message != nullptr) {
                met.merge(readMsgset(asn_DEF_MessageFrame, message.get()).marks);
            }
        }
    }
    std::vector<std::string> missing;
    for (const std::string& mark : msgsetMarks(asn_DEF_MessageFrame)) {
        if (!met.contains(mark)) {
            missing.push_back(mark);
        }
    }
    EXPECT_THAT(missing, testing::IsEmpty());
}

} // namespace
