#include "describe.h"

#include <algorithm>

#include "message_tables.h"

namespace msg {
namespace {

std::string FormatNothing(const MessageFrame_t& /*message*/) {
    return "\n";
}

std::string FormatExtension(const MessageFrame_t& message) {
    const MessageFrameExt_t& extension = message.choice.msgFrameExt;
    return ", messageId " + std::to_string(extension.messageId) + ", value of " + std::to_string(extension.value.size) +
           " bytes\n";
}

using Alternatives = MessageFrame::MessageFrame_u;

// `Alternative` is a member of Alternatives, `FormatTable` returns its table.
template <auto Alternative, auto FormatTable>
std::string FormatMessage(const MessageFrame_t& message) {
    const auto& content = message.choice.*Alternative;
    return ", msgCnt " + std::to_string(content.msgCnt) + "\n" + FormatTable(content);
}

} // namespace

const std::array<MessageKind, MessageFrame_PR_msgFrameExt + 1> MESSAGE_KINDS{{
    {MessageFrame_PR_NOTHING, "message of a newer edition", "newer", FormatNothing},
    {MessageFrame_PR_bsmFrame, "BSM", "bsm", FormatMessage<&Alternatives::bsmFrame, FormatBsm>},
    {MessageFrame_PR_mapFrame, "MAP", "map", FormatMessage<&Alternatives::mapFrame, FormatMap>},
    {MessageFrame_PR_rsmFrame, "RSM", "rsm", FormatMessage<&Alternatives::rsmFrame, FormatRsm>},
    {MessageFrame_PR_spatFrame, "SPAT", "spat", FormatMessage<&Alternatives::spatFrame, FormatSpat>},
    {MessageFrame_PR_rsiFrame, "RSI", "rsi", FormatMessage<&Alternatives::rsiFrame, FormatRsi>},
    {MessageFrame_PR_msgFrameExt, "extension", "ext", FormatExtension},
}};

const MessageKind& FindKind(const MessageFrame_t& message) {
    const auto found = std::ranges::find(MESSAGE_KINDS, message.present, &MessageKind::present);
    return found == MESSAGE_KINDS.end() ? MESSAGE_KINDS.front() : *found;
}

std::string Describe(const MessageFrame_t& message, size_t frameSize) {
    const MessageKind& kind = FindKind(message);
    return std::string(kind.name) + ", " + std::to_string(frameSize) + " bytes" + kind.format(message);
}

} // namespace msg
