// Program that decodes, shows and encodes messages.
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
    "Hex digits may be in upper or lower case. White space, ':', '-' or ',' may separate\n"
    "bytes; each byte may begin with 0x. A comment begins with '#' and ends with the line.\n"
    "\n"
    "The program reports each bad frame on standard error: input and line, number of the\n"
    "frame, byte (from 0) and reason. Then it continues with the next frame. The last line\n"
    "counts the bad frames. The program also shows a bad frame if the only error is bytes\n"
    "after the frame or a value outside its constraint. decode cannot show an alternative of\n"
    "a newer edition, because XER has no name for it; info shows the rest of such a message.\n"
    "Exit status: 0 if every frame is good; 1 if a frame is bad, if the input has no frame,\n"
    "or if reading or writing fails; 2 if the command line is wrong.";

constexpr const char* ENCODE_FOOTER =
    "The input is a sequence of documents, each from <MessageFrame> to </MessageFrame>.\n"
    "\n"
    "The program reports each bad document on standard error: input and line, number of the\n"
    "document, and either the byte (from 0) with the text at this byte, or the type of a value\n"
    "outside its constraint. It writes no frame for a bad document and continues with the next\n"
    "document. The last line counts the bad documents. The program replaces the file of\n"
    "--output at its end; this file cannot be the input file.\n"
    "Exit status: 0 if every document is good; 1 if a document is bad, if the input has no\n"
    "document, or if reading or writing fails; 2 if the command line is wrong.";

// Selects the input of a frame command. At most one of `isRaw` and `isOne` is true.
struct FrameOptions {
    std::vector<std::string> hex; // the parts of one frame; replaces the file unless empty
    std::string file = "-";
    bool isRaw = false; // the file contains the bytes of one frame
    bool isOne = false; // all lines of the file are one frame in hex
};

CLI::App* AddFrameCommand(CLI::App& app, const char* name, const char* description, FrameOptions& options) {
    CLI::App* const command = app.add_subcommand(name, description);
    CLI::Option* const hex =
        command->add_option("HEX", options.hex, "One frame in hex; replaces the input FILE")->type_name("");
    command->add_option("-f,--file", options.file, "Read FILE: one frame in hex on each line; - is standard input")
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
    bool isRaw = false; // writes the bytes of the frames, not hex
};

void AddEncodeCommand(CLI::App& app, EncodeOptions& options) {
    CLI::App* const command =
        app.add_subcommand("encode", "Turn XER documents into frames (UPER), one line of hex each");
    command->add_option("-f,--file", options.file, "Read XER from FILE; - is standard input")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_option("-o,--output", options.output, "Write to FILE; - is standard output")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_flag("-r,--raw", options.isRaw, "Write the bytes of the frames without separators, not hex");
    command->footer(ENCODE_FOOTER);
}

// Opens the input if the options name a file.
msg::FrameSource MakeSource(const FrameOptions& options, std::optional<tools::InputFile>& input) {
    if (!options.hex.empty()) {
        std::string text;
        for (const std::string& part : options.hex) {
            text += (text.empty() ? "" : " ") + part;
        }
        return msg::FromArgument(text);
    }
    input.emplace(options.file);
    return options.isRaw ? msg::FromBytes(*input) : options.isOne ? msg::FromAllLines(*input) : msg::FromLines(*input);
}

using FrameCommand = bool (*)(const msg::FrameSource&, tools::OutputFile&);

bool Run(FrameCommand command, const FrameOptions& options) {
    std::optional<tools::InputFile> input;
    const msg::FrameSource frames = MakeSource(options, input);
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
    CLI::App app("Shows messages of the national C-V2X message set, and makes frames from XER.");
    FrameOptions decodeOptions;
    FrameOptions infoOptions;
    EncodeOptions encodeOptions;
    const CLI::App* const decode =
        AddFrameCommand(app, "decode", "Turn frames (UPER) into XER, which shows every value", decodeOptions);
    const CLI::App* const info = AddFrameCommand(
        app, "info", "Show type and size of each frame's message. Show lights and times\nof a SPAT as a table",
        infoOptions);
    AddEncodeCommand(app, encodeOptions);
    // Subcommands copy the footer when they are added, so that app.footer comes last.
    app.footer("v2x_msg SUBCOMMAND --help lists the options of a subcommand.");
    return tools::RunTool(app, msg::PROGRAM, argc, argv, [&] {
        std::signal(SIGPIPE, SIG_IGN); // a closed pipe then makes the write fail
        const bool isGood = decode->parsed() ? Run(msg::DecodeAll, decodeOptions)
                            : info->parsed() ? Run(msg::DescribeAll, infoOptions)
                                             : Run(encodeOptions);
        return isGood ? 0 : tools::EXIT_FAILED;
    });
}
