// Program that decodes, shows and encodes messages.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "commands.h"
#include "common/command_line.h"
#include "common/files.h"

namespace {

constexpr const char* FRAMES_FOOTER =
    "An argument that names an existing file is a file, even if it is hex. A file contains one\n"
    "frame in hex on each line, or is a capture (pcap or pcapng). Hex digits may be in upper or\n"
    "lower case. White space, ':', '-' or ',' may separate bytes; each byte may begin with 0x. A\n"
    "comment begins with '#' and ends with the line.\n"
    "\n"
    "From a capture, the program takes the frames in the replies of the stack application, or in\n"
    "the datagrams that --udp-port selects.\n"
    "\n"
    "The program reports each bad frame on standard error: input and line or packet, number of\n"
    "the frame, byte (from 0) and reason. Then it continues with the next frame. It writes ten\n"
    "errors and counts the others. The last line counts the bad frames. The program also shows a\n"
    "bad frame if the only error is bytes after the frame or a value outside its constraint.\n"
    "A note names each part of a newer edition; decode | encode does not keep these parts.\n"
    "decode cannot show an alternative of a newer edition in XER, because XER has no name for it;\n"
    "info and decode --json show the rest of such a message.\n"
    "Exit status: 0 if every frame is good; 1 if a frame is bad, if there is no frame, or if\n"
    "reading or writing fails; 2 if the command line is wrong.";

constexpr const char* ENCODE_FOOTER =
    "A file contains XER documents, each from <MessageFrame> to </MessageFrame>, or one JSON\n"
    "object on each line, as decode --json writes it. Its first character decides.\n"
    "\n"
    "The program reports each bad document on standard error: input and line, number of the\n"
    "document, byte (from 0) or type of the value, and reason. It writes no frame for a bad\n"
    "document and continues with the next document. It writes ten errors and counts the others.\n"
    "The last line counts the bad documents. The program replaces the file of --output at its\n"
    "end; this file cannot be an input file.\n"
    "Exit status: 0 if every document is good; 1 if a document is bad, if there is no document,\n"
    "or if reading or writing fails; 2 if the command line is wrong.";

// The command line of decode or info.
struct FrameCommandLine {
    std::vector<std::string> words;
    std::string file = "-";
    std::vector<std::string> keys; // of message types
    bool isJson = false;
    bool isSummary = false;
    msg::FrameOptions options;
};

std::vector<std::string> ListKeys() {
    std::vector<std::string> keys;
    std::ranges::transform(msg::MESSAGE_KINDS, std::back_inserter(keys), &msg::MessageKind::key);
    return keys;
}

void AddInputOptions(CLI::App& command, FrameCommandLine& given) {
    msg::FrameOptions& options = given.options;
    CLI::Option* const input =
        command.add_option("INPUT", given.words, "Files, or one frame in hex; - is standard input")->type_name("");
    command.add_option("-f,--file", given.file, "Read FILE; - is standard input")
        ->type_name("FILE")
        ->capture_default_str()
        ->excludes(input);
    CLI::Option* const one = command.add_flag("-1,--one", options.isOne, "All lines of a file are one frame in hex");
    CLI::Option* const raw =
        command.add_flag("-r,--raw", options.isRaw, "A file is the bytes of consecutive frames, not hex")
            ->excludes(one);
    CLI::Option* const port = command
                                  .add_option("-p,--udp-port", options.datagrams.port,
                                              "In captures, take the frames from the datagrams from or to port N")
                                  ->type_name("N")
                                  ->check(tools::NumberInRange(1, UINT16_MAX))
                                  ->excludes(raw)
                                  ->excludes(one);
    command
        .add_option("--offset", options.datagrams.offset,
                    "The frame is the payload of the datagram from byte K (from 0) to its end")
        ->type_name("K")
        ->check(tools::NumberInRange(0, UINT16_MAX))
        ->capture_default_str()
        ->needs(port);
}

CLI::App* AddFrameCommand(CLI::App& app, const char* name, const char* description, FrameCommandLine& given) {
    CLI::App* const command = app.add_subcommand(name, description);
    AddInputOptions(*command, given);
    command
        ->add_option("-t,--type", given.keys,
                     "Show only messages of these types: bsm, map, rsm, spat, rsi,\next, newer")
        ->type_name("TYPE")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check(CLI::IsMember(ListKeys(), CLI::ignore_case).description(""));
    command->add_flag("-s,--summary", given.isSummary, "Show only the numbers of frames and bytes of each type");
    command->footer(FRAMES_FOOTER);
    command->final_callback([&given] {
        try {
            const bool areFiles = given.options.isRaw || given.options.isOne;
            given.options.arguments = msg::SortWords(given.words, given.file, areFiles);
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError("INPUT", error.what());
        }
        for (const msg::MessageKind& kind : msg::MESSAGE_KINDS) {
            if (std::ranges::count(given.keys, kind.key) != 0) {
                given.options.kinds.push_back(&kind);
            }
        }
    });
    return command;
}

// The command line of encode.
struct EncodeCommandLine {
    std::vector<std::string> words;
    std::string file = "-";
    std::string output = "-";
    bool skipsUnknown = false;
    msg::EncodeOptions options;
};

void AddEncodeCommand(CLI::App& app, EncodeCommandLine& given) {
    CLI::App* const command =
        app.add_subcommand("encode", "Turn XER documents or lines of JSON into frames (UPER), one line\nof hex each");
    CLI::Option* const input = command->add_option("INPUT", given.words, "Files; - is standard input")->type_name("");
    command->add_option("-f,--file", given.file, "Read FILE; - is standard input")
        ->type_name("FILE")
        ->capture_default_str()
        ->excludes(input);
    command->add_option("-o,--output", given.output, "Write to FILE; - is standard output")
        ->type_name("FILE")
        ->capture_default_str();
    command->add_flag("-r,--raw", given.options.isRaw, "Write the bytes of the frames without separators, not hex");
    command->add_flag("--skip-unknown", given.skipsUnknown,
                      "Skip XER elements, attributes and text that the message set does\n"
                      "not know, and report each. Without this option, they are errors");
    command->footer(ENCODE_FOOTER);
}

bool Run(FrameCommandLine& given, msg::View view) {
    given.options.view = given.isSummary ? msg::View::summary : given.isJson ? msg::View::json : view;
    tools::OutputFile output("-", given.options.arguments.paths);
    return msg::ShowFrames(given.options, output);
}

bool Run(EncodeCommandLine& given) {
    given.options.paths = given.words.empty() ? std::vector{given.file} : given.words;
    given.options.unknown = given.skipsUnknown ? msg::Unknown::skip : msg::Unknown::refuse;
    tools::OutputFile output(given.output, given.options.paths);
    return msg::EncodeDocuments(given.options, output);
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Shows messages of the national C-V2X message set, and makes frames from XER or JSON.");
    FrameCommandLine decodeLine;
    FrameCommandLine infoLine;
    EncodeCommandLine encodeLine;
    CLI::App* const decode =
        AddFrameCommand(app, "decode", "Turn frames (UPER) into XER or JSON, which show every value", decodeLine);
    decode->add_flag("-j,--json", decodeLine.isJson, "Write JSON, one line for each frame")->excludes("--summary");
    const CLI::App* const info = AddFrameCommand(
        app, "info", "Show type and size of each frame's message, and its most important\nvalues as a table", infoLine);
    AddEncodeCommand(app, encodeLine);
    // Subcommands copy the footer when they are added, so that app.footer comes last.
    app.footer("v2x_msg SUBCOMMAND --help lists the options of a subcommand.");
    return tools::RunTool(app, msg::PROGRAM, argc, argv, [&] {
        std::signal(SIGPIPE, SIG_IGN); // a closed pipe then makes the write fail
        try {
            const bool isGood = decode->parsed() ? Run(decodeLine, msg::View::xer)
                                : info->parsed() ? Run(infoLine, msg::View::table)
                                                 : Run(encodeLine);
            return isGood ? 0 : tools::EXIT_FAILED;
        } catch (const tools::ClosedPipe&) {
            return 0; // the reader needs no more
        }
    });
}
