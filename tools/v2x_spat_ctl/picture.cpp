#include "picture.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <stdexcept>

#include "client.h"
#include "common/capture_file.h"
#include "common/files.h"
#include "common/json.h"
#include "common/text.h"
#include "event_time.h"
#include "format.h"
#include "picture_svg.h"
#include "signals.h"
#include "spat_conv_config.h"
#include "v2x_spat_sim/ipc_record.h"

namespace ctl {
namespace {

using Clock = std::chrono::steady_clock;
using tools::FormatText;
using tools::GetMember;
using tools::GetNumber;
using tools::GetText;

// What the diagram shows, and the reason if the daemon has ended the connection.
struct Picture {
    Timeline timeline;
    std::string daemonGone;
};

std::vector<PhaseLight> ReadLights(const cJSON* line, double maxAge) {
    std::vector<PhaseLight> lights;
    const cJSON* light = nullptr;
    cJSON_ArrayForEach(light, GetMember(line, "lights")) {
        if (GetNumber(light, "age") <= maxAge) {
            lights.push_back({GetInteger(light, "phase"), FindLight(GetText(light, "light"))});
        }
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

std::string RequestUnit(Client& client) {
    const tools::Json status = tools::ParseJsonObject(client.Request("status"));
    return FormatText("%s, intersection %d/%d", GetText(status.get(), "device").c_str(),
                      GetInteger(status.get(), "region"), GetInteger(status.get(), "node"));
}

// Starts with the present lights, and then follows the events.
void Watch(Client& client, TimelineBuilder& builder, double seconds) {
    constexpr int CHECK_INTERVAL = 100; // milliseconds; a signal before poll() takes effect within this time
    constexpr double VALID_SECONDS = static_cast<double>(TimelineBuilder::VALID_TIME) / 1e6;
    client.Request("watch");
    const tools::Json present = tools::ParseJsonObject(client.Request("lights"));
    const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    const std::vector<PhaseLight> lights = ReadLights(present.get(), VALID_SECONDS);
    if (!lights.empty()) {
        builder.AddRecord(ParseTime(GetText(present.get(), "time")), lights);
    }
    while (!WasSignalled() && Clock::now() < end) {
        if (const auto line = client.ReadLine(CHECK_INTERVAL)) {
            AddEvent(*line, builder);
        }
    }
}

Picture WatchDaemon(const PictureOptions& options) {
    constexpr double DEFAULT_SECONDS = 60;
    Client client(FindSocket(options));
    CatchSignals();
    TimelineBuilder builder(ReadConflicts(tools::ParseJsonObject(client.Request("config")).get()));
    const std::string unit = RequestUnit(client);
    std::string daemonGone;
    try {
        Watch(client, builder, options.seconds > 0 ? options.seconds : DEFAULT_SECONDS);
    } catch (const NoDaemon& reason) {
        daemonGone = reason.what();
    }
    if (builder.Records() == 0) {
        throw std::runtime_error("no record was handed over to the stack application");
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const uint64_t end = static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
    return {builder.Finish(unit, end), daemonGone};
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

std::string FormatResult(const PictureOptions& options, const Timeline& timeline) {
    const double seconds = static_cast<double>(timeline.end - timeline.begin) / 1e6;
    const bool isStandardOutput = options.output == "-";
    if (!options.isJson) {
        return FormatText("%s: %s, %.1f s, phases %zu, records %" PRIu64 ", marks %zu\n",
                          isStandardOutput ? "standard output" : options.output.c_str(), timeline.unit.c_str(), seconds,
                          timeline.phases.size(), timeline.records, timeline.marks.size());
    }
    const tools::Json object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "file", options.output.c_str());
    cJSON_AddNumberToObject(object.get(), "phases", static_cast<double>(timeline.phases.size()));
    cJSON_AddNumberToObject(object.get(), "seconds", seconds);
    cJSON_AddNumberToObject(object.get(), "records", static_cast<double>(timeline.records));
    cJSON_AddNumberToObject(object.get(), "marks", static_cast<double>(timeline.marks.size()));
    return tools::PrintJson(object.get()) + "\n";
}

} // namespace

void AddEvent(const std::string& line, TimelineBuilder& builder) {
    const tools::Json event = tools::ParseJsonObject(line);
    const std::string kind = GetText(event.get(), "event");
    const auto time = [&] { return ParseTime(GetText(event.get(), "time")); };
    if (kind == "record") {
        const double anyAge = 0; // the lights of an event have no age
        builder.AddRecord(time(), ReadLights(event.get(), anyAge));
    } else if (const std::string text = GetText(event.get(), "text"); !kind.empty() && !text.empty()) {
        builder.AddMark(time(), text);
    } else if (const int lost = GetInteger(event.get(), "lost"); lost > 0) {
        builder.AddMark(builder.Covered().end, FormatText("%d events lost", lost));
    }
}

int RunPicture(const PictureOptions& options) {
    const Picture picture = options.capture.empty() ? WatchDaemon(options) : ReadPicture(options);
    tools::WriteFile(options.output, DrawTimeline(picture.timeline));
    std::fputs(FormatResult(options, picture.timeline).c_str(), options.output == "-" ? stderr : stdout);
    if (!picture.daemonGone.empty()) {
        throw NoDaemon(picture.daemonGone);
    }
    return 0;
}

} // namespace ctl
