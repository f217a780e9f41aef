// Program that shows and changes the log levels of a running daemon.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <stdexcept>

#include "common/command_line.h"
#include "common/files.h"
#include "common/text.h"
#include "log_request.h"
#include "v2x/v2xpub.h"

namespace {

constexpr const char* PROGRAM = "v2x_logtool";

struct Options {
    std::string host = "127.0.0.1";
    uint16_t port = 20003;
    double timeout = 2; // seconds
    std::string tag;
    std::string level;
};

// Sends a request to the daemon and receives the answer.
class Client {
public:
    explicit Client(const Options& options)
        : m_options(options), m_peer(tools::FormatText("%s port %u", options.host.c_str(), options.port)) {
        v2xpub_SocketInitPara_t para = {};
        snprintf(para.m_sockName, sizeof para.m_sockName, "%s", PROGRAM);
        snprintf(para.m_localIP, sizeof para.m_localIP, "0.0.0.0");
        para.m_cliEnable = 1;
        if (v2xpub_UdpSocketInit(&m_socket, &para, 0) != 0) {
            throw std::runtime_error("cannot open a UDP socket to send to " + m_peer);
        }
    }
    ~Client() { v2xpub_UdpSocketExit(m_socket); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Returns the answer. Throws std::runtime_error if no answer arrives before the timeout; `otherReason` ends the
    // message.
    logtool::Bytes SendRequest(logtool::Bytes request, const std::string& otherReason) {
        const v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(request.size()), request.data()};
        if (v2xpub_UdpSocketSetSendAddr(m_socket, m_options.host.c_str(), m_options.port) != 0 ||
            v2xpub_UdpSocketReqSend(m_socket, &datagram) != 0) {
            throw std::runtime_error("cannot send the request to " + m_peer);
        }
        logtool::Bytes answer(INT16_MAX);
        v2xpub_UdpSocketDataHead_t buffer = {INT16_MAX, answer.data()};
        if (v2xpub_UdpSocketRecv(m_socket, &buffer, static_cast<int32_t>(m_options.timeout * 1000)) != 0) {
            throw std::runtime_error(tools::FormatText("no answer from %s within %g s: no daemon listens there%s",
                                                       m_peer.c_str(), m_options.timeout, otherReason.c_str()));
        }
        answer.resize(static_cast<size_t>(buffer.m_curMsgLen));
        return answer;
    }

private:
    const Options& m_options;
    std::string m_peer; // the daemon's address, for messages
    V2X_UDPSOCKHANDLE m_socket = nullptr;
};

std::string FormatTagLine(const std::string& tag, int16_t level) {
    return tools::FormatText("%-8s %s\n", tag.c_str(), logtool::FormatLevel(level).c_str());
}

// Returns the output of the subcommand `list`.
std::string ListLevels(const Options& options) {
    const logtool::Bytes answer = Client(options).SendRequest(logtool::MakeListRequest(), "");
    std::string lines;
    for (const logtool::TagLevel& tag : logtool::ParseAnswer(answer)) {
        lines += FormatTagLine(tag.tag, tag.level);
    }
    return lines;
}

// Returns the output of the subcommand `set`.
std::string SetLevel(const Options& options) {
    const int16_t level = logtool::ParseLevel(options.level).value();
    const std::string otherReason =
        options.tag == logtool::ALL_TAGS ? "" : ", or it has no tag \"" + options.tag + "\"";
    logtool::ParseAnswer(Client(options).SendRequest(logtool::MakeSetRequest(options.tag, level), otherReason));
    return FormatTagLine(options.tag, level);
}

void AddAddressOptions(CLI::App& app, Options& options) {
    app.add_option("--host", options.host, "IPv4 address of the daemon")
        ->check(CLI::ValidIPV4.description(""))
        ->type_name("IP")
        ->capture_default_str();
    app.add_option("--port", options.port, "UDP port of the daemon: ipc.spatconv_logtool_rcvport in v2x_ipc.cfg")
        ->check(tools::NumberInRange(1, 65535))
        ->type_name("PORT")
        ->capture_default_str();
    app.add_option("--timeout", options.timeout, "Seconds to wait for the answer")
        ->check(tools::NumberInRange(0.001, 3600))
        ->type_name("S")
        ->capture_default_str();
}

void AddSetCommand(CLI::App& app, Options& options) {
    CLI::App* const set = app.add_subcommand("set", "Set the level of one log tag or of all log tags");
    set->add_option("TAG", options.tag, "The name of a log tag; ALL sets all log tags")
        ->type_name("")
        ->required()
        ->check([](const std::string& tag) {
            return tag.empty() || tag.size() > logtool::MAX_TAG_SIZE ? "a tag has 1 to 8 characters" : std::string();
        });
    set->add_option(
           "LEVEL", options.level,
           "0 to 7, or undo, fatal, error, warn, info, debug, verbose, trace. The daemon\nlogs the messages of this "
           "level and of lower levels")
        ->type_name("")
        ->required()
        ->check([](const std::string& level) {
            return logtool::ParseLevel(level).has_value() ? std::string() : "'" + level + "' is not a level";
        });
    AddAddressOptions(*set, options);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app(
        "Shows and changes the log levels of a running v2x_spat_convert. A change lasts until the daemon ends.");
    app.footer("Exit status: 0 on success; 1 if no valid answer arrives; 2 if the command line is wrong.");
    CLI::App* const list = app.add_subcommand("list", "Print each log tag and its level");
    AddAddressOptions(*list, options);
    AddSetCommand(app, options);
    // Subcommands copy the footer when they are added, so that app.footer comes last.
    app.footer("v2x_logtool SUBCOMMAND --help lists the options of a subcommand.");
    return tools::RunTool(app, PROGRAM, argc, argv, [&] {
        tools::WriteFile("-", list->parsed() ? ListLevels(options) : SetLevel(options));
        return 0;
    });
}
