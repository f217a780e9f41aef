// Reads the journal.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "bytes.h"
#include "v2x/v2xjournal.h"

// Removes all entries, which start with a Head. Returns the texts that format(head, body) makes of them.
template <typename Head, typename Format>
std::vector<std::string> takeEntries(Format format) {
    std::vector<std::string> texts;
    const auto visit = [&](v2x_journalKind, std::span<const uint8_t> bytes) {
        Head head;
        memcpy(&head, bytes.data(), sizeof head);
        texts.push_back(format(head, Bytes(bytes.begin() + sizeof head, bytes.end())));
    };
    while (v2x_journal::Read(visit)) {
    }
    return texts;
}
