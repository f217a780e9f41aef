#include "stack_command.h"

#include <stdexcept>

#include "frame_file.h"

namespace sim {
namespace {

constexpr size_t MAX_ITEMS = 100; // some more than the daemon reads, 64

constexpr const char* BAD_REPLIES =
    "Kinds of bad replies to choose from: head (wrong start bytes),\nlength (wrong length field), large (20481 bytes "
    "after the head),\ncommand, type (those of no reply), cut (an item that reaches beyond\nthe end), garbage (an item "
    "that cannot be decoded), trailing (bytes\nbehind an item's frame), number (more items claimed than there\nare), "
    "short (a datagram of 0 to 27 bytes)";

constexpr const char* FOOTER =
    "Requests for SPAT are answered with encoded messages: those of --frames, or one that says\nwhat the last record "
    "said (its first 16 phases; not before there is one).\n"
    "Items of a reply lie one directly after another. The daemon looks for each one behind the\nitem before it alone, "
    "and so finds the first two; Corrections.ReplyItems of its configuration\nmakes it walk over all of them.\n"
    "The summary's items are those that can be decoded, of a bad reply those in front of the\nfirst that cannot.";

constexpr NamedKind<ReplyKind> KINDS[] = {
    {"head", ReplyKind::wrongHead},       {"length", ReplyKind::wrongLength}, {"large", ReplyKind::tooLarge},
    {"command", ReplyKind::wrongCommand}, {"type", ReplyKind::wrongType},     {"cut", ReplyKind::cutItem},
    {"garbage", ReplyKind::garbage},      {"trailing", ReplyKind::trailing},  {"number", ReplyKind::wrongNumber},
    {"short", ReplyKind::tooShort},
};

void AddReplies(CLI::App& stack, StackCommand& command) {
    AnswerOptions& answers = command.options.answers;
    CLI::Option* const frames =
        stack
            .add_option("--frames", command.framesFile,
                        "Answer with the encoded messages in FILE, in turn; a frame in hex\non each line, '#' begins a "
                        "comment")
            ->type_name("FILE");
    CLI::Option* const items = stack.add_option("--items", answers.items, "Frames of the file in each reply")
                                   ->check(Number(1, MAX_ITEMS))
                                   ->type_name("N")
                                   ->capture_default_str()
                                   ->needs(frames);
    for (const auto& [name, kind] : KINDS) {
        command.bad.kinds.emplace_back(name);
    }
    AddDamage(stack, command.bad,
              {"--bad-replies", "Share of the replies that is bad, 0 to 1", "--bad-reply-kinds", BAD_REPLIES});
    command.bad.seedOption->needs(command.bad.shareOption);
    stack.add_flag("--no-replies", command.noReplies, "Answer no request")
        ->excludes(frames, items, command.bad.shareOption);
}

} // namespace

CLI::App* AddStack(CLI::App& app, StackCommand& command) {
    CLI::App* const stack = app.add_subcommand(
        "stack", "Play the stack application: check the daemon's frames, show what they say, answer its\nrequests");
    command.listen = "127.0.0.1:20010";
    stack->add_option("--listen", command.listen, "Where frames arrive: ipc.app_rs_rcvport of v2x_ipc.cfg")
        ->check(Address(LOOPBACK))
        ->type_name("[IP:]PORT")
        ->capture_default_str();
    AddReplies(*stack, command);
    AddRunOptions(*stack, command.options.run, "records");
    stack->add_flag(
        "--json", command.options.run.json,
        "Print each record, refusal and the summary as one JSON object\nper line; times of states in 0.1 s");
    stack->footer(FOOTER);
    return stack;
}

StackOptions OptionsOf(const StackCommand& command) {
    StackOptions options = command.options;
    options.listen = ParseEndpoint(command.listen, LOOPBACK);
    options.isAnswering = !command.noReplies;
    options.answers.bad = command.bad.share;
    options.answers.badKinds = ChosenKinds<ReplyKind>(command.bad.kinds, KINDS);
    options.seed = command.bad.Seed();
    if (!command.framesFile.empty()) {
        options.answers.frames =
            ReadFrameFile(command.framesFile, MAX_REPLY_PAYLOAD - ReplyPayload(std::vector<Item>(1)));
        try {
            CheckAnswers(options.answers);
        } catch (const std::invalid_argument& reason) {
            throw std::runtime_error(command.framesFile + ": " + reason.what());
        }
    }
    return options;
}

} // namespace sim
