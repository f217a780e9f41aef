#include "text.h"

#include <new>
#include <sstream>
#include <stdexcept>

namespace sim {

void ForEachLine(const std::string& text, const std::string& name,
                 const std::function<void(std::string_view line)>& visit) {
    std::istringstream in(text);
    std::string line;
    for (size_t number = 1; std::getline(in, line); ++number) {
        const std::string_view content = std::string_view(line).substr(0, line.find('#'));
        if (content.find_first_not_of(" \t\r") == std::string_view::npos) {
            continue;
        }
        try {
            visit(content);
        } catch (const std::invalid_argument& reason) {
            throw std::runtime_error(FormatText("%s:%zu: %s", name.c_str(), number, reason.what()));
        }
    }
}

cJSON* AddObject(cJSON* array) {
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    return object;
}

std::string JsonLine(const JsonPtr& object) {
    struct Free {
        void operator()(char* line) const { cJSON_free(line); }
    };
    const std::unique_ptr<char, Free> line(cJSON_PrintUnformatted(object.get()));
    if (line == nullptr) {
        throw std::bad_alloc();
    }
    return line.get();
}

} // namespace sim
