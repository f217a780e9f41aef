// Command line of the message viewer.
#include <CLI/CLI.hpp>

#include <csignal>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "common/command_line.h"
#include "common/files.h"

namespace {

constexpr const char* FRAMES_FOOTER =
    "Hex may be in upper or lower case, with white space, ':', '-' or ',' between bytes and\n"
    "0x before them; '#' begins a comment, which ends with the line.\n"
    "\n"
    "A bad frame is reported on standard error: input and line, number of the frame, the byte\n"
    "(from 0) where decoding stopped or where bytes are left over, and the reason. Then the\n"
    "next frame is read; the last line counts the bad ones. A frame with bytes left over or\n"
    "with a value outside its constraint is bad, but is shown. XER has no name for an\n"
    "alternative of a newer edition: info shows what it can of such a message.\n"
    "The exit status is 0 when every frame was good; 1 when a frame was bad, when there was\n"
    "none, or when reading or writing failed; 2 for a wrong command line.";

constexpr const char* ENCODE_FOOTER =
    "Documents follow one another, each from <MessageFrame> to </MessageFrame>.\n"
    "\n"
    "A bad document is reported on standard error: input and line, number of the document,\n"
    "and either the byte in it (from 0) with the text there, or the type of a value outside\n"
    "its constraint. No frame is written for it. Then the next document is read; the last\n"
    "line counts the bad ones. A file given with --output is replaced when all is written; it\n"
    "cannot be the input file.\n"
    "The exit status is 0 when every document was good; 1 when a document was bad, when there\n"
    "was none, or when reading or writing failed; 2 for a wrong command line.";

// Where frames come from; at most one of the switches is on.
struct FrameOptions {
    std::vector<std::string> hex;
    std::string file = "-";
    bool isRaw = false;
    bool isOne = false;
};

CLI::App* AddFrameCommand(CLI::App& app, const char* name, const char* description, FrameOptions& options) {
    CLI::App* const command = app.add_subcommand(name, description);
    CLI::Option* const hex =
        command->add_option("HEX", options.hex, "One frame; without it, frames are read from FILE")->type_name("");
    command->add_option("-f,--file", options.file, "Read FILE: hex, one frame a line; - is standard input")
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
    std::string output = "-";
    bool isRaw = false;
};

void AddEncode(CLI::App& app, EncodeOptions& options) {
    CLI::App* const command = app.add_subcommand("encode", "Turn XER into frames, one line of hex each");
    command->add_option("-f,--file", options.file, "Read XER from FILE; - is standard input")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_option("-o,--output", options.output, "Write to FILE; - is standard output")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_flag("-r,--raw", options.isRaw, "Write the bytes of the frames without separators, not hex");
    command->footer(ENCODE_FOOTER);
}

msg::FrameSource SourceOf(const FrameOptions& options, std::optional<tools::InputFile>& input) {
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

using FrameCommand = bool (*)(const msg::FrameSource&, tools::OutputFile&);

bool Run(FrameCommand command, const FrameOptions& options) {
    std::optional<tools::InputFile> input;
    const msg::FrameSource frames = SourceOf(options, input);
    tools::OutputFile output("-", input ? &*input : nullptr);
    const bool isGood = command(frames, output);
    output.Commit();
    return isGood;
}

bool Run(const EncodeOptions& options) {
    tools::InputFile input(options.file);
    tools::OutputFile output(options.output, &input);
    const bool isGood = msg::EncodeAll(input, options.isRaw ? msg::FrameForm::raw : msg::FrameForm::hex, output);
    output.Commit();
    return isGood;
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Shows captured messages of the national C-V2X message set, and makes frames from XER.");
    FrameOptions decodeOptions;
    FrameOptions infoOptions;
    EncodeOptions encodeOptions;
    const CLI::App* const decode =
        AddFrameCommand(app, "decode", "Turn frames (UPER) into XER: every message whole", decodeOptions);
    const CLI::App* const info = AddFrameCommand(
        app, "info", "Show type and size of each frame's message, and of a SPAT\nlights and times as a table",
        infoOptions);
    AddEncode(app, encodeOptions);
    app.footer("v2x_msg SUBCOMMAND --help lists the options of a subcommand."); // after them: subcommands inherit it
    return tools::RunTool(app, msg::PROGRAM, argc, argv, [&] {
        std::signal(SIGPIPE, SIG_IGN); // a reader that closes the pipe is a write error
        const bool isGood = decode->parsed() ? Run(msg::DecodeAll, decodeOptions)
                            : info->parsed() ? Run(msg::DescribeAll, infoOptions)
                                             : Run(encodeOptions);
        return isGood ? 0 : tools::EXIT_FAILED;
    });
}
