#include "picture.h"

#include <algorithm>
#include <cinttypes>
#include <ctime>
#include <stdexcept>

#include "client.h"
#include "common/capture_file.h"
#include "common/files.h"
#include "common/json.h"
#include "common/text.h"
#include "event_time.h"
#include "format.h"
#include "lights.h"
#include "picture_svg.h"
#include "signals.h"
#include "spat_conv_config.h"
#include "v2x_spat_sim/ipc_record.h"

namespace ctl {
namespace {

using tools::FormatText;
using tools::GetMember;
using tools::GetNumber;
using tools::GetText;

constexpr double MAX_AGE = 3600; // seconds; the largest stale_after

// What the diagram shows, and the reason if the daemon has ended the connection.
struct Picture {
    Timeline timeline;
    std::string daemonGone;
};

// Reads the lights of an event, or of the reply `lights`. Only the lights of the reply have a source and an age.
std::vector<PhaseLight> ReadLights(const cJSON* line, const cJSON* status) {
    std::vector<PhaseLight> lights;
    const bool isReply = GetMember(line, "reply") != nullptr;
    const cJSON* light = nullptr;
    cJSON_ArrayForEach(light, GetMember(line, "lights")) {
        const double left = OldAfter(status, GetText(isReply ? light : line, "source")) - GetNumber(light, "age");
        lights.push_back({tools::GetInteger(light, "phase"), FindLight(GetText(light, "light")),
                          static_cast<uint64_t>(std::clamp(left, 0.0, MAX_AGE) * 1e6)});
    }
    return lights;
}

// Reads Guard.Conflicts from the reply to the request config.
Conflicts ReadConflicts(const cJSON* config) {
    Conflicts conflicts;
    const cJSON* setting = nullptr;
    cJSON_ArrayForEach(setting, GetMember(config, "settings")) {
        const cJSON* pair = nullptr;
        if (!GetText(setting, "key").ends_with("Guard.Conflicts")) {
            continue;
        }
        cJSON_ArrayForEach(pair, GetMember(setting, "value")) {
            if (cJSON_GetArraySize(pair) == 2) {
                conflicts.emplace_back(cJSON_GetArrayItem(pair, 0)->valueint, cJSON_GetArrayItem(pair, 1)->valueint);
            }
        }
    }
    return conflicts;
}

std::string FormatUnit(const cJSON* status) {
    return FormatText("%s, intersection %d/%d", GetPlainText(status, "device").c_str(),
                      tools::GetInteger(status, "region"), tools::GetInteger(status, "node"));
}

uint64_t ReadClock() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

// Starts with the present lights, and then follows the events.
Picture WatchDaemon(const PictureOptions& options) {
    constexpr double DEFAULT_SECONDS = 60;
    Client client(FindSocket(options));
    CatchSignals();
    const auto request = [&](const char* name) { return client.ParseLine(client.Request(name)); };
    TimelineBuilder builder(ReadConflicts(request("config").get()));
    const tools::Json status = request("status");
    request("watch");
    AddLine(request("lights").get(), status.get(), builder);
    std::string daemonGone =
        FollowLines(client, options.seconds > 0 ? options.seconds : DEFAULT_SECONDS,
                    [&](const std::string& line) { AddLine(client.ParseLine(line).get(), status.get(), builder); });
    if (builder.Records() == 0) {
        throw std::runtime_error("no record was handed over to the stack application");
    }
    return {builder.Finish(FormatUnit(status.get()), ReadClock()), std::move(daemonGone)};
}

Conflicts LoadConflicts(const std::string& workDir) {
    Conflicts conflicts;
    const spat_conv_config_t* const config = LoadConfiguration(workDir).unit;
    for (int pair = 0; config != nullptr && pair < config->m_guard.m_conflict_count; ++pair) {
        conflicts.emplace_back(config->m_guard.m_conflicts[pair][0], config->m_guard.m_conflicts[pair][1]);
    }
    return conflicts;
}

// Returns the current light of each phase: of the first state that starts now, or else of the first state.
std::vector<PhaseLight> CurrentLights(const sim::SpatRecord& record) {
    std::vector<PhaseLight> lights;
    for (const sim::Phase& phase : record.phases) {
        const auto current = std::ranges::find(phase.states, 0, &sim::PhaseState::start);
        if (!phase.states.empty()) {
            lights.push_back({phase.id, current != phase.states.end() ? current->light : phase.states.front().light});
        }
    }
    return lights;
}

// Uses the records of the first intersection.
Picture ReadPicture(const PictureOptions& options) {
    TimelineBuilder builder(LoadConflicts(options.workDir));
    const auto length = static_cast<uint64_t>(options.seconds * 1e6);
    std::optional<uint32_t> intersection;
    tools::ReadCapture(options.capture, [&](const tools::Datagram& datagram) {
        const sim::Frame frame = sim::ReadFrame(datagram.payload);
        const auto* const record = std::get_if<sim::SpatRecord>(&frame);
        if (record == nullptr || intersection.value_or(record->intersection) != record->intersection) {
            return;
        }
        intersection = record->intersection;
        if (length == 0 || builder.Records() == 0 || datagram.time <= builder.Covered().begin + length) {
            builder.AddRecord(datagram.time, CurrentLights(*record));
        }
    });
    if (!intersection) {
        throw std::runtime_error(options.capture + ": no SPAT record");
    }
    const std::string unit = FormatText("intersection %u/%u", *intersection >> 16, *intersection & 0xFFFF);
    return {builder.Finish(unit, builder.Covered().end), ""};
}

void Print(const PictureOptions& options, const Timeline& timeline) {
    const double seconds = static_cast<double>(timeline.end - timeline.begin) / 1e6;
    const tools::Json object = MakeResult(options);
    cJSON_AddNumberToObject(object.get(), "phases", static_cast<double>(timeline.phases.size()));
    cJSON_AddNumberToObject(object.get(), "seconds", seconds);
    cJSON_AddNumberToObject(object.get(), "records", static_cast<double>(timeline.records));
    cJSON_AddNumberToObject(object.get(), "marks", static_cast<double>(timeline.marks.size()));
    PrintResult(options, object.get(),
                FormatText("%s, %.1f s, phases %zu, records %" PRIu64 ", marks %zu", timeline.unit.c_str(), seconds,
                           timeline.phases.size(), timeline.records, timeline.marks.size()));
}

} // namespace

void AddLine(const cJSON* line, const cJSON* status, TimelineBuilder& builder) {
    const auto time = [&] { return ParseTime(GetText(line, "time")); };
    if (const auto lights = ReadLights(line, status); !lights.empty() || GetText(line, "event") == "record") {
        builder.AddRecord(time(), lights);
    } else if (const std::string text = GetText(line, "text"); !text.empty()) {
        builder.AddMark(time(), text);
    } else if (const int lost = tools::GetInteger(line, "lost"); lost > 0) {
        builder.AddMark(builder.Covered().end, FormatText("%d events lost", lost));
    }
}

int RunPicture(const PictureOptions& options) {
    const Picture picture = options.capture.empty() ? WatchDaemon(options) : ReadPicture(options);
    tools::WriteFile(options.output, DrawTimeline(picture.timeline));
    Print(options, picture.timeline);
    if (!picture.daemonGone.empty()) {
        throw NoDaemon(picture.daemonGone);
    }
    return 0;
}

} // namespace ctl
