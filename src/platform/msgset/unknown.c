#include "unknown.h"

#include <string.h>

static int IsSpace(char character) {
    return character != '\0' && strchr(" \t\n\v\f\r", character) != NULL;
}

// `tag` has `size` bytes and includes its angle brackets.
static int HasAttributes(const char* tag, size_t size) {
    size_t end = size - 1; // of the name and the attributes
    if (end > 2 && tag[end - 1] == '/') {
        --end;
    }
    size_t i = 2; // the name has at least one character
    while (i < end && !IsSpace(tag[i]) && tag[i] != '/') {
        ++i;
    }
    while (i < end && IsSpace(tag[i])) {
        ++i;
    }
    return i < end;
}

int unknown_report(const asn_codec_ctx_t* context, asn_unknown_kind_t kind, const asn_TYPE_descriptor_t* type,
                   const void* data, size_t size, long value) {
    const asn_unknown_t unknown = {kind, type, data, size, value};
    return context != NULL && context->unknown != NULL && context->unknown(&unknown, context->unknown_key) != 0;
}

ssize_t unknown_next_token(const asn_codec_ctx_t* context, const asn_TYPE_descriptor_t* type, unknown_place_t place,
                           int* state, const void* buffer, size_t size, pxer_chunk_type_e* token) {
    const char* const text = buffer;
    const ssize_t length = xer_next_token(state, buffer, size, token);
    if (length <= 0 || context == NULL || context->unknown == NULL || place == UNKNOWN_SKIPPED) {
        return length;
    }
    const size_t count = (size_t)length;
    int isRefused = 0;
    if (*token == PXER_TEXT && place != UNKNOWN_VALUE && xer_whitespace_span(text, count) < count) {
        isRefused = unknown_report(context, ASN_UNKNOWN_TEXT, type, text, count, 0);
    } else if (*token == PXER_TAG && (place != UNKNOWN_BODY || text[1] == '/') && HasAttributes(text, count)) {
        // The decoder of a child element gets the child's start tag again.
        isRefused = unknown_report(context, ASN_UNKNOWN_ATTRIBUTE, NULL, text, count, 0);
    }
    return isRefused ? -1 : length;
}
