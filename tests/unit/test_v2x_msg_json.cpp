// Converts frames to JSON and back, compares the JSON with the values of an independent decoder, and checks the errors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captured_frames.h"
#include "common/hex.h"
#include "common/json.h"
#include "message_json.h"
#include "uper_frames.h"

namespace {

using testing::EndsWith;

std::string makeJson(const MessageFrame_t& message) {
    std::string text;
    msg::AppendJson(message, text);
    return text;
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
        text.replace(at, from.size(), to);
    }
    return text;
}

// Returns the value at the path of a leaf, as in "spatFrame.intersections[0].status", or null if it is absent.
const cJSON* follow(const cJSON* json, const std::string& path) {
    std::istringstream names(replaceAll(replaceAll(path, "[", "."), "]", ""));
    for (std::string name; path != "MessageFrame" && std::getline(names, name, '.');) {
        json = cJSON_IsArray(json) ? cJSON_GetArrayItem(json, std::stoi(name)) : tools::GetMember(json, name.c_str());
    }
    return json;
}

std::string quote(const std::string& text) {
    return tools::PrintJson(tools::Json(cJSON_CreateString(text.c_str())).get());
}

// Returns the JSON of a leaf, with '?' for NUL.
std::string jsonOfText(const std::string& escaped) {
    std::string text;
    for (size_t i = 1; i + 1 < escaped.size(); ++i) {
        const bool isEscape = escaped[i] == '\\';
        const int character = isEscape ? std::stoi(escaped.substr(i + 1, 2), nullptr, 16) : escaped[i];
        text += character == 0 ? '?' : static_cast<char>(character);
        i += isEscape ? 2 : 0;
    }
    return quote(text);
}

std::string jsonOfBits(const std::string& path, std::string bits) {
    const size_t count = bits.size();
    Bytes bytes;
    for (bits.append(7, '0'); bits.size() >= 8; bits.erase(0, 8)) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(bits.substr(0, 8), nullptr, 2)));
    }
    const std::string digits = quote(tools::ToHex(bytes));
    const bool isFixed = count == 16 || path.ends_with("currGNSSstatus");
    return isFixed ? digits : "{\"bits\":" + std::to_string(count) + ",\"hex\":" + digits + "}";
}

std::string jsonOfLeaf(const std::string& path, const std::string& value) {
    if (value == "absent" || value == "none") {
        return value == "none" ? "{}" : "";
    }
    if (value.ends_with("'B")) {
        return jsonOfBits(path, value.substr(1, value.size() - 3));
    }
    if (value.ends_with("'H")) {
        return quote(value.substr(1, value.size() - 3));
    }
    return value.starts_with('"') ? jsonOfText(value)
           : value.ends_with(')') ? quote(value.substr(0, value.find(" (")))
                                  : value;
}

void compareLeaves(const UperFrame& frame, const std::string& text) {
    const tools::Json json = tools::ParseJsonObject(replaceAll(text, "\\u0000", "?"));
    for (const std::string& leaf : frame.leaves) {
        const size_t equals = leaf.find(" = ");
        const std::string path = leaf.substr(0, equals);
        const std::string value = leaf.substr(equals + 3);
        if (path.ends_with("[]")) {
            EXPECT_EQ(cJSON_GetArraySize(follow(json.get(), path.substr(0, path.size() - 2))), std::stoi(value))
                << leaf;
        } else if (value.find(" octets ") == std::string::npos) {
            EXPECT_EQ(tools::PrintJson(follow(json.get(), path)), jsonOfLeaf(path, value)) << leaf;
        }
    }
}

// A frame of a newer edition loses what is new. A frame with a new alternative cannot be encoded again.
TEST(MessageJson, RoundTripsAllVectors) {
    size_t encoded = 0;
    size_t refused = 0;
    std::string failedType;
    for (const std::string file : {"captured", "bsm", "map", "rsm", "spat", "rsi", "msgFrameExt", "newer"}) {
        for (const UperFrame& frame : uperFrames(V2X_TEST_DATA "/uper/" + file + ".txt")) {
            SCOPED_TRACE(file + " " + frame.name);
            const msg::Decoded message = msg::DecodeFrame(frame.bytes);
            const std::string json = makeJson(*message.message);
            compareLeaves(frame, json);
            const msg::Decoded decoded = msg::DecodeJson(json);
            if (file == "newer" && msg::EncodeFrame(*message.message, failedType).empty()) {
                EXPECT_EQ(decoded.message, nullptr);
                EXPECT_THAT(decoded.problems.at(0).text,
                            EndsWith(": an alternative of a newer edition cannot be encoded"));
                ++refused;
                continue;
            }
            ASSERT_NE(decoded.message, nullptr) << decoded.problems.at(0).text;
            EXPECT_EQ(msg::EncodeFrame(*decoded.message, failedType),
                      file == "newer" ? msg::EncodeFrame(*message.message, failedType) : frame.bytes);
            ++encoded;
        }
    }
    EXPECT_EQ(encoded, 189U);
    EXPECT_EQ(refused, 12U);
}

TEST(MessageJson, HasFormOfCapturedFrame) {
    const std::string message =
        R"({"bsmFrame":{"msgCnt":35,"id":"3030313433313031","secMark":47091,"timeConfidence":"unavailable",)"
        R"("pos":{"lat":281260343,"long":1128799971,"elevation":1233},)"
        R"("posAccuracy":{"semiMajor":0,"semiMinor":0,"orientation":0},)"
        R"("posConfidence":{"pos":"unavailable","elevation":"unavailable"},"transmission":"reverseGears","speed":6,)"
        R"("heading":5944,"angle":15,"accelSet":{"long":5,"lat":0,"vert":0,"yaw":0},)"
        R"("brakes":{"brakePadel":"off","wheelBrakes":{"bits":5,"hex":"F8"}},"size":{"width":180,"length":500},)"
        R"("vehicleClass":{"classification":54},"safetyExt":{"events":{"bits":13,"hex":"0000"},)"
        R"("lights":{"bits":9,"hex":"0000"}}}})";
    EXPECT_EQ(makeJson(*msg::DecodeFrame(hex(captured::bsm)).message), message);
    const std::string line =
        R"( {"packet":12,"time":"2026-11-23T02:37:55.123456Z","MessageFrame":)" + message + "}\r\n";
    const msg::Decoded decoded = msg::DecodeJson(line);
    std::string failedType;
    ASSERT_NE(decoded.message, nullptr) << decoded.problems.at(0).text;
    EXPECT_EQ(msg::EncodeFrame(*decoded.message, failedType), hex(captured::bsm));
}

struct InvalidLine {
    std::string line;
    size_t offset;
    std::string text;
};

TEST(MessageJson, RejectsInvalidLines) {
    constexpr size_t NONE = msg::Problem::UNKNOWN_OFFSET;
    const auto spat = [](const std::string& members) { return R"({"spatFrame":{"msgCnt":1,)" + members + "}}"; };
    const auto phase = [&](const std::string& members) {
        return spat(R"("intersections":[{"phases":[{"id":1,"phaseStates":[{)" + members + "}]}]}]");
    };
    const auto events = [](const std::string& value) {
        return R"({"bsmFrame":{"safetyExt":{"events":)" + value + "}}}";
    };
    const std::string state = "MessageFrame/spatFrame/intersections/0/phases/0/phaseStates/0";
    const std::string eventsPath = "MessageFrame/bsmFrame/safetyExt/events";
    const InvalidLine lines[] = {
        {"", 0, "not JSON"},
        {R"({"spatFrame":{"msgCnt":tru}})", 23, "not JSON"},
        {R"({"spatFrame":{}} {})", 17, "text after the object"},
        {"{\"a\x01\":1}", 3, "not a character of JSON"},
        {"{\"\xFF\":1}", 2, "not a character of JSON"},
        {std::string(33, '['), 32, "nested deeper than 32 levels"},
        {"[]", NONE, "MessageFrame: expected an object"},
        {"{}", NONE, "MessageFrame: empty: an alternative of a newer edition cannot be encoded"},
        {R"({"packet":1})", NONE, R"(MessageFrame: unknown member "packet")"},
        {R"({"size":1,"MessageFrame":{}})", NONE, R"(unknown or repeated member "size")"},
        {R"({"spatFrame":{}})", NONE, R"(MessageFrame/spatFrame: missing member "msgCnt")"},
        {spat(R"("msgCnt":1)"), NONE, R"(MessageFrame/spatFrame: repeated member "msgCnt")"},
        {spat(R"("moy":"1")"), NONE, "MessageFrame/spatFrame/moy: expected a number"},
        {spat(R"("moy":1.5)"), NONE, "MessageFrame/spatFrame/moy: 1.5 is not an integer"},
        {spat(R"("moy":527041)"), NONE, "MessageFrame/spatFrame/moy: 527041 is outside its constraint"},
        {spat(R"("moy":18446744073709551617)"), NONE, "MessageFrame/spatFrame/moy: 1.844674407370955e+19 is too large"},
        {spat(R"("name":"\u0100")"), NONE, "MessageFrame/spatFrame/name: a character is not in ASCII"},
        {spat(R"("name":"")"), NONE, "MessageFrame/spatFrame/name: 0 characters are outside its constraint"},
        {spat(R"("intersections":{})"), NONE, "MessageFrame/spatFrame/intersections: expected an array"},
        {spat(R"("intersections":[)" + replaceAll(std::string(32, ' '), " ", "0,") + "0]"), NONE,
         "MessageFrame/spatFrame/intersections: 33 items are outside its constraint"},
        {spat(R"("intersections":[{"status":"12"}])"), NONE,
         "MessageFrame/spatFrame/intersections/0/status: 8 bits are outside its constraint"},
        {spat(R"("intersections":[{"status":"12G4"}])"), NONE,
         "MessageFrame/spatFrame/intersections/0/status: character 3: 'G' is not a hexadecimal digit"},
        {phase(R"("light":3)"), NONE, state + "/light: expected a name"},
        {phase(R"("light":"redd")"), NONE, state + R"(/light: unknown name "redd")"},
        {phase(R"("timing":{"counting":{},"utcTiming":{}})"), NONE,
         state + "/timing: expected an object with one member"},
        {R"({"bsmFrame":{"msgCnt":1,"id":"12"}})", NONE,
         "MessageFrame/bsmFrame/id: 1 octets are outside its constraint"},
        {events(R"("0000")"), NONE, eventsPath + ": expected the members bits and hex"},
        {events(R"({"bits":13,"hex":"0004"})"), NONE, eventsPath + ": 13 bits do not match hex"},
        {events(R"({"bits":-3,"hex":""})"), NONE, eventsPath + ": -3 bits do not match hex"},
        {events(R"({"bits":12,"hex":"0000"})"), NONE, eventsPath + ": 12 bits are outside its constraint"},
    };
    for (const InvalidLine& invalid : lines) {
        SCOPED_TRACE(invalid.line);
        const msg::Decoded decoded = msg::DecodeJson(invalid.line);
        EXPECT_EQ(decoded.message, nullptr);
        ASSERT_EQ(decoded.problems.size(), 1U);
        EXPECT_EQ(decoded.problems[0].offset, invalid.offset);
        EXPECT_EQ(decoded.problems[0].text, invalid.text);
    }
}

} // namespace
