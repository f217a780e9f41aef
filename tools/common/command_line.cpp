#include "common/command_line.h"

#include <charconv>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <vector>

#include "common/text.h"

namespace tools {
namespace {

// Describes why the command line is invalid.
std::string DescribeError(const CLI::App& app, const CLI::Error& error) {
    const std::vector<std::string> rest = app.remaining();
    if (!app.get_subcommands().empty() || rest.empty() || rest.front().starts_with('-')) {
        return error.what();
    }
    std::string text = "unknown subcommand '" + rest.front() + "'; the subcommands are:";
    for (const CLI::App* const command : app.get_subcommands([](const CLI::App*) { return true; })) {
        text += " " + command->get_name();
    }
    return text;
}

} // namespace

CLI::Validator NumberInRange(double min, double max) {
    const auto check = [min, max](const std::string& text) {
        double value = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        const bool isValid = error == std::errc{} && stop == end && value >= min && value <= max;
        return isValid ? "" : FormatText("'%s' is not a number from %.15g to %.15g", text.c_str(), min, max);
    };
    return {check, ""};
}

CLI::Option* AddEndpointOption(CLI::App& app, const std::string& name, Endpoint& endpoint, const std::string& type,
                               const std::string& help) {
    const bool isIpOptional = type.front() == '[';
    const auto take = [&endpoint, name, isIpOptional](const std::string& given) {
        try {
            endpoint = ParseEndpoint(given);
        } catch (const std::invalid_argument& reason) {
            throw CLI::ValidationError(name, reason.what());
        }
        if (endpoint.ip.empty() && !isIpOptional) {
            throw CLI::ValidationError(name, "'" + given + "' is not IP:PORT, like 127.0.0.1:8002");
        }
    };
    return app.add_option_function<std::string>(name, take, help)
        ->type_name(type)
        ->default_str(FormatEndpoint(endpoint));
}

int RunTool(CLI::App& app, const char* program, int argc, char** argv, const std::function<int()>& run) {
    try {
        app.set_version_flag("--version", FormatText("%s %s", program, V2X_VERSION));
        app.require_subcommand(1);
        app.failure_message([program](const CLI::App* failed, const CLI::Error& error) {
            return FormatText("%s: %s\nRun with --help for more information.\n", program,
                              DescribeError(*failed, error).c_str());
        });
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    try {
        return run();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", program, error.what());
        return EXIT_FAILED;
    }
}

} // namespace tools
