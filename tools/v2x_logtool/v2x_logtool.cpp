// Shows and changes the log levels of a running daemon.
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
    double timeout = 2;
    std::string tag;
    std::string level;
};

class Client {
public:
    explicit Client(const Options& options)
        : m_options(options), m_peer(tools::FormatText("%s port %u", options.host.c_str(), options.port)) {
        v2xpub_SocketInitPara_t para = {};
        snprintf(para.m_sockName, sizeof para.m_sockName, "%s", PROGRAM);
        snprintf(para.m_localIP, sizeof para.m_localIP, "0.0.0.0");
        para.m_cliEnable = 1;
        if (v2xpub_UdpSocketInit(&m_socket, &para, 0) != 0) {
            throw std::runtime_error("cannot open a UDP socket");
        }
    }
    ~Client() { v2xpub_UdpSocketExit(m_socket); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // `otherReason` is appended to the message for a missing answer.
    logtool::Bytes Ask(logtool::Bytes request, const std::string& otherReason) {
        const v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(request.size()), request.data()};
        if (v2xpub_UdpSocketSetSendAddr(m_socket, m_options.host.c_str(), m_options.port) != 0 ||
            v2xpub_UdpSocketReqSend(m_socket, &datagram) != 0) {
            throw std::runtime_error("cannot send to " + m_peer);
        }
        logtool::Bytes answer(INT16_MAX);
        v2xpub_UdpSocketDataHead_t room = {INT16_MAX, answer.data()};
        if (v2xpub_UdpSocketRecv(m_socket, &room, static_cast<int32_t>(m_options.timeout * 1000)) != 0) {
            throw std::runtime_error(tools::FormatText("no answer from %s within %g s: no daemon listens there%s",
                                                       m_peer.c_str(), m_options.timeout, otherReason.c_str()));
        }
        answer.resize(static_cast<size_t>(room.m_curMsgLen));
        return answer;
    }

private:
    const Options& m_options;
    std::string m_peer;
    V2X_UDPSOCKHANDLE m_socket = nullptr;
};

std::string Line(const std::string& tag, int16_t level) {
    return tools::FormatText("%-8s %s\n", tag.c_str(), logtool::LevelText(level).c_str());
}

std::string List(const Options& options) {
    std::string lines;
    for (const logtool::TagLevel& tag : logtool::ReadAnswer(Client(options).Ask(logtool::ListRequest(), ""))) {
        lines += Line(tag.tag, tag.level);
    }
    return lines;
}

std::string Set(const Options& options) {
    const int16_t level = logtool::ParseLevel(options.level).value();
    const std::string otherReason =
        options.tag == logtool::ALL_TAGS ? "" : ", or it has no tag \"" + options.tag + "\"";
    logtool::ReadAnswer(Client(options).Ask(logtool::SetRequest(options.tag, level), otherReason));
    return Line(options.tag, level);
}

void AddAddress(CLI::App& app, Options& options) {
    app.add_option("--host", options.host, "Host of the daemon")->check(CLI::ValidIPV4)->capture_default_str();
    app.add_option("--port", options.port, "UDP port: ipc.spatconv_logtool_rcvport of the unit's v2x_ipc.cfg")
        ->check(tools::Number(1, 65535))
        ->capture_default_str();
    app.add_option("--timeout", options.timeout, "Seconds to wait for the answer")
        ->check(tools::Number(0.001, 3600))
        ->capture_default_str();
}

void AddSet(CLI::App& app, Options& options) {
    CLI::App* const set = app.add_subcommand("set", "Set the level of one tag, or of all");
    set->add_option("TAG", options.tag, "A tag as list prints it, or ALL")
        ->required()
        ->check([](const std::string& tag) {
            return tag.empty() || tag.size() > logtool::MAX_TAG_SIZE ? "a tag has 1 to 8 characters" : std::string();
        });
    set->add_option(
           "LEVEL", options.level,
           "0 to 7, or undo, fatal, error, warn, info, debug, verbose, trace. A tag writes\nthe messages of its level "
           "and of lower levels")
        ->required()
        ->check([](const std::string& level) {
            return logtool::ParseLevel(level).has_value() ? std::string() : "'" + level + "' is not a level";
        });
    AddAddress(*set, options);
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Shows and changes the log levels of a running v2x_spat_convert, until it ends.");
    CLI::App* const list = app.add_subcommand("list", "Print every log tag and its level");
    AddAddress(*list, options);
    AddSet(app, options);
    return tools::RunTool(app, PROGRAM, argc, argv, [&] {
        tools::WriteFile("-", list->parsed() ? List(options) : Set(options));
        return 0;
    });
}
