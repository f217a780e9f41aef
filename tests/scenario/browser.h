// Chromium without a window, driven through its DevTools protocol.
#pragma once

#include <optional>
#include <string>

#include "common/json.h"
#include "process.h"

class Browser {
public:
    static bool isInstalled();

    // Opens the page. Profile, pipes and output are in `folder`.
    Browser(const std::string& folder, const std::string& url);
    ~Browser();
    Browser(const Browser&) = delete;
    Browser& operator=(const Browser&) = delete;

    // Waits until a JavaScript expression in the page has this value as text. Its last value if it never has; "" if the
    // expression throws.
    std::string awaitValue(const std::string& expression, const std::string& value);

private:
    tools::Json call(const std::string& method, const std::string& parameters);

    int m_requests;
    int m_replies;
    std::optional<Process> m_process;
    std::string m_received;
    std::string m_session; // member of each request, once the page is attached
    int m_last = 0;        // number of the last request
};
