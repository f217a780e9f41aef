// Shows and changes the log levels of a running daemon.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <stdexcept>

#include "log_request.h"
#include "v2x/v2xpub.h"

namespace {

constexpr const char* PROGRAM = "v2x_logtool";
constexpr int EXIT_FAILED = 1;
constexpr int EXIT_USAGE = 2;

struct Options {
    std::string host = "127.0.0.1";
    uint16_t port = 20003;
    double timeout = 2;
    std::string tag;
    std::string level;
};

class Client {
public:
    explicit Client(const Options& options) : m_options(options) {
        v2xpub_SocketInitPara_t para = {};
        snprintf(para.m_sockName, sizeof para.m_sockName, "%s", PROGRAM);
        snprintf(para.m_localIP, sizeof para.m_localIP, "0.0.0.0");
        para.m_cliEnable = 1;
        if (v2xpub_UdpSocketInit(&m_socket, &para, 0) != 0) {
            throw std::runtime_error("cannot open a socket");
        }
    }
    ~Client() { v2xpub_UdpSocketExit(m_socket); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    logtool::Bytes Ask(logtool::Bytes request, const std::string& otherReason) {
        const v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(request.size()), request.data()};
        if (v2xpub_UdpSocketSetSendAddr(m_socket, m_options.host.c_str(), m_options.port) != 0 ||
            v2xpub_UdpSocketReqSend(m_socket, &datagram) != 0) {
            throw std::runtime_error("cannot send to " + Peer());
        }
        logtool::Bytes answer(INT16_MAX);
        v2xpub_UdpSocketDataHead_t room = {INT16_MAX, answer.data()};
        if (v2xpub_UdpSocketRecv(m_socket, &room, static_cast<int32_t>(m_options.timeout * 1000)) != 0) {
            char seconds[32];
            snprintf(seconds, sizeof seconds, "%g", m_options.timeout);
            throw std::runtime_error("no answer from " + Peer() + " within " + seconds + " s: no daemon listens there" +
                                     otherReason);
        }
        answer.resize(static_cast<size_t>(room.m_curMsgLen));
        return answer;
    }

private:
    std::string Peer() const { return m_options.host + " port " + std::to_string(m_options.port); }

    const Options& m_options;
    V2X_UDPSOCKHANDLE m_socket = nullptr;
};

void List(const Options& options) {
    for (const logtool::TagLevel& tag : logtool::ReadAnswer(Client(options).Ask(logtool::ListRequest(), ""))) {
        printf("%-8s %s\n", tag.tag.c_str(), logtool::LevelText(tag.level).c_str());
    }
}

void Set(const Options& options) {
    const auto level = logtool::ParseLevel(options.level);
    const std::string otherReason =
        options.tag == logtool::ALL_TAGS ? "" : ", or it has no tag \"" + options.tag + "\"";
    logtool::ReadAnswer(Client(options).Ask(logtool::SetRequest(options.tag, level.value()), otherReason));
    printf("%-8s %s\n", options.tag.c_str(), logtool::LevelText(*level).c_str());
}

void AddAddress(CLI::App& app, Options& options) {
    app.add_option("--host", options.host, "Host of the daemon")->check(CLI::ValidIPV4)->capture_default_str();
    app.add_option("--port", options.port, "ipc.spatconv_logtool_rcvport of the unit's v2x_ipc.cfg")
        ->check(CLI::Range(1, 65535))
        ->capture_default_str();
    app.add_option("--timeout", options.timeout, "Seconds to wait for the answer")
        ->check(CLI::Range(0.001, 3600.0))
        ->capture_default_str();
}

int Main(int argc, char** argv) {
    Options options;
    CLI::App app("Shows and changes the log levels of a running v2x_spat_convert; they last until it ends.");
    app.set_version_flag("--version", std::string(PROGRAM) + " " + V2X_VERSION);
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string(PROGRAM) + ": " + error.what() + "\nRun with --help for more information.\n";
    });
    CLI::App* const list = app.add_subcommand("list", "Print every log tag and its level");
    AddAddress(*list, options);
    CLI::App* const set = app.add_subcommand("set", "Set the level of one tag, or of all");
    set->add_option("TAG", options.tag, "A tag as list prints it, or ALL")
        ->required()
        ->check([](const std::string& tag) {
            return tag.empty() || tag.size() > logtool::MAX_TAG_SIZE ? "a tag has 1 to 8 characters" : std::string();
        });
    set->add_option(
           "LEVEL", options.level,
           "0 to 7, or undo, fatal, error, warn, info, debug, verbose, trace; a tag at one\nlevel writes what is of "
           "that level and those before it")
        ->required()
        ->check([](const std::string& level) {
            return logtool::ParseLevel(level).has_value() ? std::string() : "\"" + level + "\" is no level";
        });
    AddAddress(*set, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    if (list->parsed()) {
        List(options);
    } else {
        Set(options);
    }
    if (fflush(stdout) != 0) {
        throw std::runtime_error("standard output takes nothing");
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        fprintf(stderr, "%s: %s\n", PROGRAM, error.what());
        return EXIT_FAILED;
    }
}
