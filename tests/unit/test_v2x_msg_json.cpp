// Converts frames to JSON and back, compares the JSON with the values of an independent decoder, and checks the errors.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "captured_frames.h"
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

// Returns the JSON of a leaf. `value` is its value in the notation of the file. An absent member has no JSON.
std::string jsonOfLeaf(const std::string& path, const std::string& value) {
    if (value == "absent" || value == "none") {
        return value == "none" ? "{}" : "";
    }
    if (value.starts_with('"')) {
        return replaceAll(replaceAll(value, "\\", "\\u00"), "\\u0000", "?");
    }
    if (!value.starts_with('\'')) {
        return value.ends_with(')') ? '"' + value.substr(0, value.find(" (")) + '"' : value;
    }
    const std::string content = value.substr(1, value.size() - 3);
    if (value.ends_with('H')) {
        return '"' + content + '"';
    }
    std::string digits;
    for (size_t i = 0; i < content.size() || i % 8 != 0; i += 4) {
        digits += "0123456789ABCDEF"[std::stoi((content + "0000000").substr(i, 4), nullptr, 2)];
    }
    const bool isFixed = content.size() == 16 || path.ends_with("currGNSSstatus");
    return isFixed ? '"' + digits + '"'
                   : R"({"bits":)" + std::to_string(content.size()) + R"(,"hex":")" + digits + "\"}";
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
            const tools::Json expected(cJSON_Parse(jsonOfLeaf(path, value).c_str()));
            EXPECT_EQ(tools::PrintJson(follow(json.get(), path)), tools::PrintJson(expected.get())) << leaf;
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

TEST(MessageJson, RejectsInvalidLines) {
    const auto spat = [](const std::string& members) { return R"({"spatFrame":{"msgCnt":1,)" + members + "}}"; };
    const auto state = [&](const std::string& members) { return spat(R"("intersections":[{)" + members + "}]"); };
    const auto bsm = [](const std::string& members) { return R"({"bsmFrame":{)" + members + "}}"; };
    const auto events = [&](const std::string& value) { return bsm(R"("safetyExt":{"events":)" + value + "}"); };
    const std::string spatPath = "MessageFrame/spatFrame";
    const std::string statePath = spatPath + "/intersections/0";
    const std::string eventsPath = "MessageFrame/bsmFrame/safetyExt/events";
    const std::pair<std::string, std::string> lines[] = {
        {"", "byte 0: not JSON"},
        {R"({"spatFrame":{"msgCnt":tru}})", "byte 23: not JSON"},
        {R"({"spatFrame":{}} {})", "byte 17: text after the object"},
        {"{\"a\x01\":1}", "byte 3: not a character of JSON"},
        {"{\"\xFF\":1}", "byte 2: not a character of JSON"},
        {std::string(33, '['), "byte 32: nested deeper than 32 levels"},
        {"[]", "MessageFrame: expected an object"},
        {"{}", "MessageFrame: empty: an alternative of a newer edition cannot be encoded"},
        {R"({"packet":1})", R"(MessageFrame: unknown member "packet")"},
        {R"({"spatFram":1})", R"(MessageFrame: unknown member "spatFram", did you mean "spatFrame"?)"},
        {R"({"size":1,"MessageFrame":{}})", R"(unknown or repeated member "size")"},
        {R"({"spatFrame":{}})", spatPath + R"(: missing member "msgCnt")"},
        {spat(R"("msgCnt":1)"), spatPath + R"(: repeated member "msgCnt")"},
        {spat(R"("moy":"1")"), spatPath + "/moy: expected a number"},
        {spat(R"("moy":1.5)"), spatPath + "/moy: 1.5 is not an integer"},
        {spat(R"("moy":527041)"), spatPath + "/moy: 527041 is outside its constraint"},
        {spat(R"("moy":18446744073709551617)"), spatPath + "/moy: 1.844674407370955e+19 is too large"},
        {spat(R"("name":"\u0100")"), spatPath + "/name: a character is not in ASCII"},
        {spat(R"("name":"")"), spatPath + "/name: 0 characters are outside its constraint"},
        {spat(R"("intersections":{})"), spatPath + "/intersections: expected an array"},
        {spat(R"("intersections":[])"), spatPath + "/intersections: 0 items are outside its constraint"},
        {state(R"("status":"12")"), statePath + "/status: 8 bits are outside its constraint"},
        {state(R"("status":"12G4")"), statePath + "/status: character 3: 'G' is not a hexadecimal digit"},
        {state(R"("timeConfidence":3)"), statePath + "/timeConfidence: expected a name"},
        {bsm(R"("transmission":"parc")"),
         R"(MessageFrame/bsmFrame/transmission: unknown name "parc", did you mean "park"?)"},
        {bsm(R"("id":"12")"), "MessageFrame/bsmFrame/id: 1 octets are outside its constraint"},
        {events(R"("0000")"), eventsPath + ": expected the members bits and hex"},
        {events(R"({"bits":13,"hex":"0004"})"), eventsPath + ": 13 bits do not match hex"},
        {events(R"({"bits":-3,"hex":""})"), eventsPath + ": -3 bits do not match hex"},
        {events(R"({"bits":12,"hex":"0000"})"), eventsPath + ": 12 bits are outside its constraint"},
    };
    for (const auto& [line, expected] : lines) {
        const msg::Decoded decoded = msg::DecodeJson(line);
        EXPECT_EQ(decoded.message, nullptr) << line;
        ASSERT_EQ(decoded.problems.size(), 1U) << line;
        const auto& [offset, text] = decoded.problems[0];
        const bool isKnown = offset != msg::Problem::UNKNOWN_OFFSET;
        EXPECT_EQ((isKnown ? "byte " + std::to_string(offset) + ": " : "") + text, expected) << line;
    }
}

} // namespace
