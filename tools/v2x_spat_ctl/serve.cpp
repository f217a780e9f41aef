#include "serve.h"

#include <csignal>
#include <pthread.h>
#include <thread>

#include "common/files.h"
#include "web_server.h"

namespace ctl {
namespace {

void Announce(const ServeOptions& options) {
    const std::string address = "http://" + tools::FormatEndpoint(options.listen) + "/";
    tools::WriteFile("-", options.isJson ? "{\"serving\":\"" + address + "\"}\n" : "serving " + address + "\n");
}

} // namespace

int RunServe(const ServeOptions& options) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr); // before the first thread starts
    EventHub hub;
    DaemonLink link(FindSocket(options), hub);
    std::vector<std::string> hosts = options.hosts;
    hosts.push_back(options.listen.ip);
    WebServer server(link, hub, hosts);
    server.Bind(options.listen);
    Announce(options);
    std::jthread stopper([&] {
        int signal = 0;
        sigwait(&signals, &signal);
        hub.Stop();
        server.Stop();
    });
    if (!server.Run()) {
        pthread_kill(stopper.native_handle(), SIGTERM);
        throw std::runtime_error("the web server cannot accept connections any more");
    }
    return 0;
}

} // namespace ctl
