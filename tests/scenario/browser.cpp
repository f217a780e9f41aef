#include "browser.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* CHROMIUM = "/usr/bin/chromium";

// A named pipe, open in both directions so that no side waits for the other one.
int openPipe(const std::string& path) {
    EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
    return open(path.c_str(), O_RDWR | O_CLOEXEC);
}

const cJSON* resultOf(const tools::Json& reply) {
    return tools::GetMember(reply.get(), "result");
}

} // namespace

bool Browser::isInstalled() {
    return access(CHROMIUM, X_OK) == 0;
}

Browser::Browser(const std::string& folder, const std::string& url)
    : m_requests(openPipe(folder + "/requests")), m_replies(openPipe(folder + "/replies")) {
    const std::string command =
        std::string("exec ") + CHROMIUM +
        " --headless --no-sandbox --disable-gpu --remote-debugging-pipe --user-data-dir=" + folder + "/profile 3<" +
        folder + "/requests 4>" + folder + "/replies";
    m_process.emplace(std::vector<std::string>{"/bin/sh", "-c", command}, std::vector<std::string>{},
                      folder + "/chromium.out", folder + "/chromium.err");
    const auto target = call("Target.createTarget", "{\"url\":\"about:blank\"}");
    const auto session = call("Target.attachToTarget", "{\"flatten\":true,\"targetId\":\"" +
                                                           tools::GetText(resultOf(target), "targetId") + "\"}");
    m_session = ",\"sessionId\":\"" + tools::GetText(resultOf(session), "sessionId") + "\"";
    call("Page.navigate", "{\"url\":\"" + url + "\"}");
}

Browser::~Browser() {
    m_process->signal(SIGTERM);
    m_process->wait(20000); // the profile is in a folder that the test removes
    close(m_requests);
    close(m_replies);
}

tools::Json Browser::call(const std::string& method, const std::string& parameters) {
    const std::string request = "{\"id\":" + std::to_string(++m_last) + ",\"method\":\"" + method +
                                "\",\"params\":" + parameters + m_session + "}";
    EXPECT_EQ(write(m_requests, request.c_str(), request.size() + 1), static_cast<ssize_t>(request.size() + 1));
    pollfd in{m_replies, POLLIN, 0};
    char bytes[65536];
    while (poll(&in, 1, 20000) == 1) {
        m_received.append(bytes, static_cast<size_t>(std::max<ssize_t>(read(m_replies, bytes, sizeof bytes), 0)));
        for (size_t end = m_received.find('\0'); end != std::string::npos; end = m_received.find('\0')) {
            tools::Json message = tools::ParseJsonObject(m_received.substr(0, end));
            m_received.erase(0, end + 1);
            if (tools::GetNumber(message.get(), "id") == m_last) {
                return message;
            }
        }
    }
    ADD_FAILURE() << "no reply to " << request;
    return nullptr;
}

std::string Browser::awaitValue(const std::string& expression, const std::string& value) {
    const tools::Json text(cJSON_CreateString(("String(" + expression + ")").c_str()));
    const std::string parameters = "{\"expression\":" + tools::PrintJson(text.get()) + "}";
    std::string last;
    eventually([&] {
        const auto reply = call("Runtime.evaluate", parameters);
        last = tools::GetText(tools::GetMember(resultOf(reply), "result"), "value");
        return last == value;
    });
    return last;
}
