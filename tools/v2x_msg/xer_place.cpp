#include "xer_place.h"

#include <algorithm>
#include <span>
#include <vector>

#include "NativeEnumerated.h"
#include "constr_CHOICE.h"
#include "constr_SEQUENCE_OF.h"
#include "xer_decoder.h"
#include "xer_names.h"

namespace msg {
namespace {

// An element whose start tag is before the place and whose end tag is not.
struct OpenElement {
    std::string_view name;
    const asn_TYPE_descriptor_t* type; // null if unknown
    std::vector<XerName> children;     // the child elements that the type knows
    ptrdiff_t lastChild;               // index of the last known child element before the place; -1 before the first
};

using OpenElements = std::vector<OpenElement>; // from outside to inside; the first represents the document

constexpr size_t MAX_DEPTH = 32; // the message set needs fewer levels

bool IsEndTag(std::string_view tag) {
    return tag.starts_with("</");
}

// `tag` starts with a tag.
std::string_view ExtractName(std::string_view tag) {
    tag.remove_prefix(std::min<size_t>(tag.size(), IsEndTag(tag) ? 2 : 1));
    return tag.substr(0, tag.find_first_of(" \t\r\n\v\f/>"));
}

// Returns the part of `text` up to the first `end`, or the whole text. Includes `end`.
std::string_view CutAfter(std::string_view text, std::string_view end) {
    const size_t at = text.find(end);
    return at == std::string_view::npos ? text : text.substr(0, at + end.size());
}

// Returns at most 40 characters of the first line of `text`, with '.' for each character that is not printable.
std::string ExtractLine(std::string_view text) {
    std::string line(text.substr(0, std::min<size_t>(text.find_first_of("\r\n"), 40)));
    std::ranges::replace_if(
        line, [](char character) { return character < ' ' || character > '~'; }, '.');
    return line;
}

std::string Quote(std::string_view name) {
    return "<" + ExtractLine(name) + ">";
}

// Returns the index of the child element that has the name, or -1 if the type does not know it.
ptrdiff_t FindChild(const OpenElement& parent, std::string_view name) {
    const auto child = std::ranges::find(parent.children, name, &XerName::name);
    return child == parent.children.end() ? -1 : child - parent.children.begin();
}

void EnterChild(OpenElements& open, std::string_view name) {
    const ptrdiff_t index = FindChild(open.back(), name);
    const asn_TYPE_descriptor_t* const type =
        index < 0 ? nullptr : open.back().children[static_cast<size_t>(index)].type;
    open.push_back({name, type, type == nullptr ? std::vector<XerName>() : ListXerNames(*type), -1});
}

// Updates the open elements after a tag. `deeper` is the number of open elements below MAX_DEPTH.
void PassTag(std::string_view tag, OpenElements& open, size_t& deeper) {
    const bool isEnd = IsEndTag(tag);
    const bool isStart = !isEnd && !tag.ends_with("/>");
    if (open.size() > MAX_DEPTH && (isStart || deeper > 0)) {
        deeper = isStart ? deeper + 1 : isEnd ? deeper - 1 : deeper;
        return;
    }
    if (isEnd) {
        open.resize(std::max<size_t>(open.size() - 1, 1));
        return;
    }
    const ptrdiff_t child = FindChild(open.back(), ExtractName(tag));
    open.back().lastChild = child < 0 ? open.back().lastChild : child;
    if (isStart) {
        EnterChild(open, ExtractName(tag));
    }
}

// Returns the elements that are open at the byte `offset`.
OpenElements FindOpenElements(std::string_view document, size_t offset) {
    OpenElements open{{{}, nullptr, {{asn_DEF_MessageFrame.xml_tag, &asn_DEF_MessageFrame, false}}, -1}};
    size_t deeper = 0;
    int state = 0;
    for (size_t at = 0; at < offset;) {
        pxer_chunk_type_e kind{};
        const std::string_view rest = document.substr(at);
        const ssize_t size = xer_next_token(&state, rest.data(), rest.size(), &kind);
        if (size <= 0) {
            break;
        }
        if (kind == PXER_TAG) {
            PassTag(rest.substr(0, static_cast<size_t>(size)), open, deeper);
        }
        at += static_cast<size_t>(size);
    }
    return open;
}

// Returns the names of the open elements, such as "MessageFrame/spatFrame: ".
std::string FormatPath(const OpenElements& open) {
    std::string path;
    for (size_t i = 1; i < open.size(); ++i) {
        path += (i == 1 ? "" : "/") + ExtractLine(open[i].name);
    }
    return path.empty() ? path : path + ": ";
}

std::string DescribeUnknownElement(const OpenElement& parent, std::string_view name) {
    if (FindChild(parent, name) >= 0) {
        return Quote(name) + " is repeated or out of order";
    }
    // Two names can be equally near. The element that may follow here is more likely.
    const std::span<const XerName> all = parent.children;
    std::string_view nearest = FindNearestName(all.subspan(static_cast<size_t>(parent.lastChild + 1)), name);
    nearest = nearest.empty() ? FindNearestName(all, name) : nearest;
    return "unknown element " + Quote(name) + (nearest.empty() ? "" : ", did you mean " + Quote(nearest) + "?");
}

// Returns the name of the first mandatory child element between the last child element and the index `end`.
std::string_view FindMissing(const OpenElement& parent, ptrdiff_t end) {
    for (ptrdiff_t i = parent.lastChild + 1; i < end; ++i) {
        const XerName& child = parent.children[static_cast<size_t>(i)];
        if (!child.isOptional) {
            return child.name;
        }
    }
    return {};
}

// Describes the failure at an end tag.
std::string DescribeEnd(const OpenElement& parent, std::string_view name) {
    if (name != parent.name) {
        return "</" + ExtractLine(name) + "> instead of </" + ExtractLine(parent.name) + ">";
    }
    const std::string_view missing = FindMissing(parent, std::ssize(parent.children));
    return missing.empty() ? "a child element is missing" : Quote(missing) + " is missing";
}

// Describes the failure at the start of a known element. `element` starts with the start tag.
std::string DescribeStart(OpenElements& open, std::string_view element) {
    const OpenElement& parent = open.back();
    const std::string_view name = ExtractName(element);
    const ptrdiff_t index = FindChild(parent, name);
    const bool isList = parent.type != nullptr && parent.type->xer_decoder == SEQUENCE_OF_decode_xer;
    const bool isChoice = parent.type != nullptr && parent.type->xer_decoder == CHOICE_decode_xer;
    if (isChoice && parent.lastChild >= 0) {
        return Quote(name) + " is a second alternative";
    }
    if (!isList && parent.lastChild >= index) {
        return Quote(name) + " is repeated or out of order";
    }
    if (const std::string_view missing = FindMissing(parent, index); !missing.empty()) {
        return Quote(missing) + " is missing before " + Quote(name);
    }
    const XerName child = parent.children[static_cast<size_t>(index)];
    EnterChild(open, name);
    const size_t value = element.find('<', 1);
    const bool isEnumerated = child.type->xer_encoder == NativeEnumerated_encode_xer;
    if (isEnumerated && value != std::string_view::npos && !IsEndTag(element.substr(value))) {
        const std::string_view valueName = ExtractName(element.substr(value));
        if (FindChild(open.back(), valueName) < 0) {
            return DescribeUnknownElement(open.back(), valueName);
        }
    }
    open.pop_back();
    return "invalid value: " + ExtractLine(CutAfter(element, "</" + std::string(name) + ">"));
}

} // namespace

std::string DescribeUnknownXer(std::string_view document, size_t offset, asn_unknown_kind_t kind) {
    const OpenElements open = FindOpenElements(document, offset);
    const std::string_view part = document.substr(offset);
    switch (kind) {
    case ASN_UNKNOWN_ELEMENT:
        return FormatPath(open) + DescribeUnknownElement(open.back(), ExtractName(part));
    case ASN_UNKNOWN_ATTRIBUTE:
        return FormatPath(open) + "unknown attribute: " + ExtractLine(CutAfter(part, ">"));
    default:
        return FormatPath(open) + "text between elements: " + ExtractLine(part.substr(0, part.find('<', 1)));
    }
}

std::string DescribeXerFailure(std::string_view document, size_t offset) {
    OpenElements open = FindOpenElements(document, offset);
    const std::string_view part = document.substr(offset);
    const std::string_view name = ExtractName(part);
    const bool isValue = open.back().type != nullptr && open.back().children.empty();
    std::string text =
        (isValue ? "invalid value: " : "not understood: ") + ExtractLine(part.substr(0, part.find('<', 1)));
    if (IsEndTag(part)) {
        text = DescribeEnd(open.back(), name);
    } else if (part.starts_with('<') && !name.empty()) {
        const bool isKnown = FindChild(open.back(), name) >= 0;
        text = isKnown ? DescribeStart(open, part) : DescribeUnknownElement(open.back(), name);
    }
    return FormatPath(open) + text;
}

} // namespace msg
