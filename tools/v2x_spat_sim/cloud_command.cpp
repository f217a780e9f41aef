#include "cloud_command.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "cloud_pieces.h"
#include "service_status.h"

namespace sim {
namespace {

constexpr int MAX_DOMAIN = 232;
constexpr size_t MAX_FRAGMENT = 65536;

constexpr const char* BAD_DOCUMENTS =
    "Kinds of bad documents to choose from: syntax (no JSON), empty,\ntruncated, overflow (more than 20479 bytes), "
    "missing-key (no\nintersections, or none with status, phases, or id), wrong-type\n(intersections that are none)";

constexpr const char* FOOTER =
    "Documents and status records are published once someone reads their topic, and counted from\nthen on. "
    "A document above 1024 bytes travels in samples of 1024 bytes and a shorter last one;\none of exactly 1024, 2048, "
    "... bytes is closed with a sample of one byte, 0. The daemon takes\na sample below 1024 bytes for the end of a "
    "document, so with a --fragment that is no\nmultiple of 1024 it reads every part as a document of its own.";

constexpr NamedKind<DocumentKind> KINDS[] = {
    {"syntax", DocumentKind::syntax},          {"empty", DocumentKind::empty},
    {"truncated", DocumentKind::truncated},    {"overflow", DocumentKind::overflow},
    {"missing-key", DocumentKind::missingKey}, {"wrong-type", DocumentKind::wrongType},
};

const struct {
    const char* name;
    std::vector<uint8_t> runStates;
} STATUSES[] = {
    {"1", {RUN_AVAILABLE}},
    {"2", {RUN_UNAVAILABLE}},
    {"alternate", {RUN_AVAILABLE, RUN_UNAVAILABLE}},
    {"none", {}},
};

std::vector<std::string> StatusNames() {
    std::vector<std::string> names;
    for (const auto& status : STATUSES) {
        names.emplace_back(status.name);
    }
    return names;
}

CLI::Validator Fragment() {
    const CLI::Validator number = Number(1, MAX_FRAGMENT);
    return {[number](std::string& given) { return given == "whole" ? "" : number(given); }, ""};
}

CLI::Validator Identity() {
    return {[](const std::string& given) { return given.empty() ? "an identity has a character at least" : ""; }, ""};
}

std::string ReadDocument(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::runtime_error(path + ": cannot be opened: " + std::strerror(errno));
    }
    std::string text{std::istreambuf_iterator<char>(in), {}};
    if (in.bad()) {
        throw std::runtime_error(path + ": cannot be read: " + std::strerror(errno));
    }
    if (text.size() > PieceAssembler::MAX_DOCUMENT) {
        throw std::runtime_error(path + ": " + std::to_string(text.size()) + " bytes; at most " +
                                 std::to_string(PieceAssembler::MAX_DOCUMENT) + " can be published");
    }
    return text;
}

void AddDocuments(CLI::App& cloud, CloudCommand& command) {
    DownOptions& downs = command.options.downs;
    cloud.add_option("--rate", downs.rate, "Documents per second (0: none)")
        ->check(Number(0, 1e4))
        ->type_name("HZ")
        ->capture_default_str();
    CLI::Option* const documents = cloud
                                       .add_option("--document", command.documentFiles,
                                                   "Send these files as they are, in turn, instead of the plan")
                                       ->type_name("FILE");
    cloud
        .add_option("--phases", command.phases,
                    "Phases of the plan, 1 to 36: 4 straight on, 4 left turns, and\nthe same again")
        ->check(Number(1, MAX_PLAN_PHASES))
        ->type_name("N")
        ->capture_default_str()
        ->excludes(documents);
    const struct {
        const char* name;
        const char* help;
        uint16_t& value;
    } identity[] = {
        {"--region", "Region of the plan's intersection", downs.intersection.region},
        {"--node", "Node id of the plan's intersection", downs.intersection.node},
    };
    for (const auto& [name, help, value] : identity) {
        cloud.add_option(name, value, help)
            ->check(Number(0, 65535))
            ->type_name("N")
            ->capture_default_str()
            ->excludes(documents);
    }
    cloud
        .add_option("--fragment", command.fragment,
                    "Publish a document SIZE bytes at a time, or whole: the DDS\nlibrary cuts it then")
        ->check(Fragment())
        ->type_name("SIZE")
        ->capture_default_str();
}

} // namespace

CLI::App* AddCloud(CLI::App& app, CloudCommand& command) {
    CLI::App* const cloud = app.add_subcommand(
        "cloud", "Play the cloud: show the daemon's documents and status, send documents and the cloud's\nstatus");
    cloud->add_option("--domain", command.options.domain, "DDS domain, on 127.0.0.1")
        ->check(Number(0, MAX_DOMAIN))
        ->type_name("N")
        ->capture_default_str();
    cloud->add_option("--device", command.options.device, "The unit's identity: device_id of sysinfo.xml")
        ->check(Identity())
        ->type_name("ID")
        ->capture_default_str();
    cloud
        ->add_option("--status", command.status,
                     "The cloud's run status: 1 (available), 2 (not), alternate, none (not sent)")
        ->check(CLI::IsMember(StatusNames()).description(""))
        ->type_name("STATUS")
        ->capture_default_str();
    cloud->add_option("--status-interval", command.options.statusInterval, "Seconds between two of them")
        ->check(Number(0.01, 1e6))
        ->type_name("S")
        ->capture_default_str();
    AddDocuments(*cloud, command);
    for (const auto& [name, kind] : KINDS) {
        command.bad.kinds.emplace_back(name);
    }
    AddDamage(*cloud, command.bad,
              {"--bad-documents", "Share of the documents that is bad, 0 to 1", "--bad-document-kinds", BAD_DOCUMENTS});
    command.bad.seedOption->needs(command.bad.shareOption);
    AddRunOptions(*cloud, command.options.run, "documents sent, with --rate 0 received");
    cloud->add_flag("--json", command.options.run.json,
                    "Print what arrives and the summary as one JSON object per line,\nand what is for people on "
                    "standard error");
    cloud->footer(FOOTER);
    return cloud;
}

CloudOptions OptionsOf(const CloudCommand& command) {
    CloudOptions options = command.options;
    for (const auto& [name, runStates] : STATUSES) {
        if (command.status == name) {
            options.runStates = runStates;
        }
    }
    options.isSending = options.downs.rate > 0;
    options.downs.phases.count = static_cast<uint8_t>(command.phases);
    options.downs.fragment = command.fragment == "whole" ? 0 : std::stoul(command.fragment);
    options.downs.bad = command.bad.share;
    options.downs.badKinds = ChosenKinds<DocumentKind>(command.bad.kinds, KINDS);
    options.seed = command.bad.Seed();
    for (const std::string& path : command.documentFiles) {
        options.downs.documents.push_back(ReadDocument(path));
    }
    return options;
}

} // namespace sim
