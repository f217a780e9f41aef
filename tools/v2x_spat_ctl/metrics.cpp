#include "metrics.h"

#include <optional>
#include <prometheus/text_serializer.h>
#include <utility>
#include <vector>

#include "client.h"
#include "common/files.h"
#include "event_time.h"

namespace ctl {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;
using Labels = std::vector<ClientMetric::Label>;

// A metric of one member of a JSON object.
struct Member {
    const char* member;
    MetricType type;
    const char* name; // after v2x_spat_
    const char* help;
};

constexpr Member SOURCE_MEMBERS[] = {
    {"age", MetricType::Gauge, "source_age_seconds", "Time since the last accepted record of the source."},
    {"rate", MetricType::Gauge, "source_records_per_second", "Accepted records of the source per second."},
    {"accepted", MetricType::Counter, "source_accepted_total", "Accepted records of the source."},
    {"refused", MetricType::Counter, "source_refused_total", "Datagrams refused by the sender filter of the source."},
    {"required", MetricType::Gauge, "source_required", "1 if the unit is healthy only if the source is fresh."},
    {"forwarded", MetricType::Gauge, "source_forwarded", "1 if the daemon forwards records of the source."},
};
constexpr Member STACK_MEMBERS[] = {
    {"age", MetricType::Gauge, "stack_age_seconds", "Time since the last answer of the stack application."},
};
constexpr Member CLOUD_MEMBERS[] = {
    {"available", MetricType::Gauge, "cloud_available", "1 if the communication software is available."},
    {"age", MetricType::Gauge, "cloud_age_seconds", "Time since the last status of the communication software."},
    {"readers", MetricType::Gauge, "cloud_readers", "Matched readers of the topic of the unit's SPAT."},
};
constexpr Member CHECK_MEMBERS[] = {
    {"active", MetricType::Gauge, "check_active", "1 from the first sight until a minute after the last one."},
    {"count", MetricType::Counter, "check_sights_total", "Sights of the check."},
};
constexpr const char* SOURCE_STATES[] = {"off", "unwatched", "waiting", "fresh", "stale"};

// Returns the value of a number or a boolean, and no value for any other type.
std::optional<double> ReadValue(const cJSON* json) {
    if (cJSON_IsNumber(json)) {
        return json->valuedouble;
    }
    return cJSON_IsBool(json) ? std::optional<double>(cJSON_IsTrue(json)) : std::nullopt;
}

// Collects the families in the order of their first metric.
class Families {
public:
    void Add(MetricType type, const std::string& name, const char* help, double value, Labels labels = {}) {
        ClientMetric metric;
        metric.label = std::move(labels);
        (type == MetricType::Counter ? metric.counter.value : metric.gauge.value) = value;
        GetFamily(type, "v2x_spat_" + name, help).metric.push_back(std::move(metric));
    }

    // Adds a metric for each member that has a value.
    template <size_t N>
    void AddMembers(const cJSON* object, const Member (&members)[N], const Labels& labels = {}) {
        for (const Member& member : members) {
            if (const auto value = ReadValue(tools::GetMember(object, member.member))) {
                Add(member.type, member.name, member.help, *value, labels);
            }
        }
    }

    std::string Serialize() const { return prometheus::TextSerializer().Serialize(m_families); }

private:
    MetricFamily& GetFamily(MetricType type, const std::string& name, const char* help) {
        for (MetricFamily& family : m_families) {
            if (family.name == name) {
                return family;
            }
        }
        return m_families.emplace_back(MetricFamily{name, help, type, {}});
    }

    std::vector<MetricFamily> m_families;
};

void AddSource(Families& families, const cJSON* source) {
    const std::string name = tools::GetText(source, "source");
    const std::string current = tools::GetText(source, "state");
    for (const char* const state : SOURCE_STATES) {
        families.Add(MetricType::Gauge, "source_state", "1 for the present state of the source, otherwise 0.",
                     state == current ? 1 : 0, {{"source", name}, {"state", state}});
    }
    families.AddMembers(source, SOURCE_MEMBERS, {{"source", name}});
}

void AddStatus(Families& families, const cJSON* status) {
    families.Add(MetricType::Gauge, "info", "Version, release and device_id of the unit.", 1,
                 {{"version", tools::GetText(status, "version")},
                  {"release", tools::GetText(status, "release")},
                  {"device", tools::GetText(status, "device")}});
    const std::string started = tools::GetText(status, "started");
    if (!started.empty()) {
        families.Add(MetricType::Gauge, "start_time_seconds", "Unix time of the daemon's start.",
                     static_cast<double>(ParseTime(started)) / 1e6);
    }
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, tools::GetMember(status, "sources")) {
        AddSource(families, item);
    }
    const cJSON* const stack = tools::GetMember(status, "stack");
    families.Add(MetricType::Gauge, "stack_up", "1 if the stack application answers.",
                 tools::GetText(stack, "state") == "answers" ? 1 : 0);
    families.AddMembers(stack, STACK_MEMBERS);
    families.AddMembers(tools::GetMember(status, "cloud"), CLOUD_MEMBERS);
    cJSON_ArrayForEach(item, tools::GetMember(status, "checks")) {
        families.AddMembers(item, CHECK_MEMBERS,
                            {{"check", tools::GetText(item, "check")}, {"source", tools::GetText(item, "source")}});
    }
}

void AddCounters(Families& families, const cJSON* counters) {
    const cJSON* path = nullptr;
    cJSON_ArrayForEach(path, tools::GetMember(counters, "counters")) {
        const cJSON* counter = nullptr;
        cJSON_ArrayForEach(counter, path) {
            families.Add(MetricType::Counter, "events_total", "Data accepted, rejected or dropped on a data path.",
                         ReadValue(counter).value_or(0), {{"path", path->string}, {"name", counter->string}});
        }
    }
}

} // namespace

std::string FormatMetrics(const cJSON* status, const cJSON* counters, ClockState clock) {
    Families families;
    families.Add(MetricType::Gauge, "up", "1 if the daemon answers.", status != nullptr ? 1 : 0);
    if (status != nullptr) {
        AddStatus(families, status);
        AddCounters(families, counters);
    }
    if (clock != ClockState::unknown) {
        families.Add(MetricType::Gauge, "clock_synchronised", "1 if the kernel's clock is synchronised.",
                     clock == ClockState::synchronised ? 1 : 0);
    }
    return families.Serialize();
}

std::string ReadMetrics(const std::function<std::string(std::string_view name)>& request) {
    const tools::Json status = tools::ParseJsonObject(request("status"));
    const tools::Json counters = tools::ParseJsonObject(request("counters"));
    return FormatMetrics(status.get(), counters.get(), ReadClockState());
}

int RunMetrics(const DaemonOptions& options) {
    try {
        Client client(FindSocket(options));
        const auto request = [&client](std::string_view name) { return client.Request(name); };
        tools::WriteFile("-",
                         options.isJson ? request("status") + "\n" + request("counters") + "\n" : ReadMetrics(request));
    } catch (const NoDaemon&) {
        tools::WriteFile("-", options.isJson ? "" : FormatMetrics(nullptr, nullptr, ReadClockState()));
        throw;
    }
    return 0;
}

} // namespace ctl
