// Command line of the message viewer.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "output.h"

namespace {

constexpr const char* PROGRAM = "v2x_msg";
constexpr int EXIT_BAD = 1;
constexpr int EXIT_USAGE = 2;

constexpr const char* FRAMES_FOOTER =
    "Hex may be in upper or lower case, with white space, ':', '-' or ',' between bytes and\n"
    "0x before them; from '#' to the end of a line is a comment.\n"
    "\n"
    "A bad frame gets a line on standard error: input and line, number of the frame, byte\n"
    "(the first is 0) where decoding stopped or where bytes are left over, and why. Work\n"
    "goes on with the next frame, and the count of bad ones stands at the end. A frame that\n"
    "was decoded, but has bytes left over or a value outside its constraint, is bad too and\n"
    "shown all the same, but XER has no name for an alternative of a newer edition: info then\n"
    "shows what it can. The exit status is 0 when all was good, 1 when a frame was bad,\n"
    "there was none or reading or writing failed, 2 for a wrong command line.";

constexpr const char* ENCODE_FOOTER =
    "Documents stand one after another, each from <MessageFrame> to </MessageFrame>.\n"
    "\n"
    "A bad document gets a line on standard error: input and line, number of the document,\n"
    "byte in it (the first is 0) and what was not understood there, or the type with a value\n"
    "outside its constraint; nothing is written for it. Work goes on with the next one, and\n"
    "the count of bad ones stands at the end. The exit status is 0 when all was good, 1 when\n"
    "a document was bad, there was none or reading or writing failed, 2 for a wrong command\n"
    "line.";

// What frames are read from; at most one of the switches is on.
struct FrameOptions {
    std::vector<std::string> hex;
    std::string file = "-";
    bool isRaw = false;
    bool isOne = false;
};

CLI::App* AddFrameCommand(CLI::App& app, const char* name, const char* description, FrameOptions& options) {
    CLI::App* const command = app.add_subcommand(name, description);
    CLI::Option* const hex =
        command->add_option("HEX", options.hex, "One frame; without it frames are read from FILE")->type_name("");
    command->add_option("-f,--file", options.file, "Read frames from FILE, hex, one frame a line; - is standard\ninput")
        ->type_name("FILE")
        ->capture_default_str()
        ->excludes(hex);
    CLI::Option* const one =
        command->add_flag("-1,--one", options.isOne, "All lines together are one frame in hex")->excludes(hex);
    command->add_flag("-r,--raw", options.isRaw, "The input is the bytes of one frame, not hex")
        ->excludes(hex)
        ->excludes(one);
    command->footer(FRAMES_FOOTER);
    return command;
}

struct EncodeOptions {
    std::string file = "-";
    std::string output;
    bool isRaw = false;
};

CLI::App* AddEncode(CLI::App& app, EncodeOptions& options) {
    CLI::App* const command = app.add_subcommand("encode", "Turn XER into frames, one line of hex each");
    command->add_option("-f,--file", options.file, "Read XER from FILE; - is standard input")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_option("-o,--output", options.output, "Write to FILE instead of standard output")->type_name("FILE");
    command->add_flag("-r,--raw", options.isRaw, "Write the frames' bytes, with nothing between them, not hex");
    command->footer(ENCODE_FOOTER);
    return command;
}

void Complain(std::string_view line) {
    std::fprintf(stderr, "%s: %.*s", PROGRAM, static_cast<int>(line.size()), line.data());
}

msg::FrameSource SourceOf(const FrameOptions& options, std::optional<msg::Input>& input) {
    if (!options.hex.empty()) {
        std::string text;
        for (const std::string& part : options.hex) {
            text += (text.empty() ? "" : " ") + part;
        }
        return msg::FrameOfArgument(text);
    }
    input.emplace(options.file);
    return options.isRaw   ? msg::FrameOfBytes(*input)
           : options.isOne ? msg::FrameOfAllLines(*input)
                           : msg::FramesOfLines(*input);
}

using FrameCommand = bool (*)(const msg::FrameSource&, const msg::Sinks&);

bool Run(FrameCommand command, const FrameOptions& options) {
    std::optional<msg::Input> input;
    const msg::FrameSource frames = SourceOf(options, input);
    msg::Output output;
    const bool isGood = command(frames, {[&](std::string_view text) { output.Write(text); }, Complain});
    output.Close();
    return isGood;
}

bool Run(const EncodeOptions& options) {
    msg::Input input(options.file);
    std::optional<msg::Output> output;
    options.output.empty() ? output.emplace() : output.emplace(options.output);
    const bool isGood = msg::EncodeAll(input, options.isRaw ? msg::FrameForm::raw : msg::FrameForm::hex,
                                       {[&](std::string_view text) { output->Write(text); }, Complain});
    output->Close();
    return isGood;
}

int Main(int argc, char** argv) {
    CLI::App app(
        "Shows the messages of the national C-V2X message set that a capture holds, and makes frames from XER.");
    app.set_version_flag("--version", std::string(PROGRAM) + " " + V2X_VERSION);
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string(PROGRAM) + ": " + error.what() + "\nRun with --help for more information.\n";
    });
    FrameOptions decodeOptions;
    FrameOptions infoOptions;
    EncodeOptions encodeOptions;
    const CLI::App* const decode =
        AddFrameCommand(app, "decode", "Turn frames (UPER) into XER, the whole of each message", decodeOptions);
    const CLI::App* const info = AddFrameCommand(
        app, "info", "Say of each frame its message's type and size, and of a SPAT\nits lights and times as a table",
        infoOptions);
    AddEncode(app, encodeOptions);
    app.footer("v2x_msg SUBCOMMAND --help tells the options of a subcommand."); // here: subcommands inherit it
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    std::signal(SIGPIPE, SIG_IGN); // a reader that has gone is an error like any other
    const bool isGood = decode->parsed() ? Run(msg::DecodeAll, decodeOptions)
                        : info->parsed() ? Run(msg::DescribeAll, infoOptions)
                                         : Run(encodeOptions);
    return isGood ? 0 : EXIT_BAD;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        Complain(std::string(error.what()) + "\n");
        return EXIT_BAD;
    }
}
