#include "result.h"

#include <cstdio>

namespace ctl {

tools::Json MakeResult(const OutputOptions& options) {
    tools::Json object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "file", options.output.c_str());
    return object;
}

void PrintResult(const OutputOptions& options, const cJSON* object, const std::string& text) {
    const bool isStandardOutput = options.output == "-";
    const std::string name = isStandardOutput ? "standard output" : options.output;
    const std::string line = options.isJson ? tools::PrintJson(object) : name + ": " + text;
    std::fprintf(isStandardOutput ? stderr : stdout, "%s\n", line.c_str());
}

} // namespace ctl
