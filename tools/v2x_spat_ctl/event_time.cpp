#include "event_time.h"

#include <cstdio>
#include <ctime>
#include <stdexcept>

namespace ctl {

uint64_t ParseTime(const std::string& text) {
    tm utc{};
    unsigned milliseconds = 0;
    int end = 0;
    const char* const rest = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &utc);
    const int fields = rest != nullptr ? std::sscanf(rest, ".%3uZ%n", &milliseconds, &end) : 0;
    const time_t seconds = timegm(&utc);
    if (fields != 1 || end != 5 || rest[end] != '\0' || seconds < 0) {
        throw std::runtime_error("'" + text + "' is not a time");
    }
    return (static_cast<uint64_t>(seconds) * 1000 + milliseconds) * 1000;
}

} // namespace ctl
