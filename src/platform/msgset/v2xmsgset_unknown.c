#include "v2xmsgset_unknown.h"

#include <string.h>

static int IsSpace(char character) {
    return character != '\0' && strchr(" \t\n\v\f\r", character) != NULL;
}

static size_t SkipSpace(const char* text, size_t from, size_t end) {
    while (from < end && IsSpace(text[from])) {
        ++from;
    }
    return from;
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
    return SkipSpace(tag, i, end) < end;
}

int v2xmsgset_ReportUnknown(const asn_codec_ctx_t* context, asn_unknown_kind_t kind, const asn_TYPE_descriptor_t* type,
                            const void* data, size_t size, long value) {
    const asn_unknown_t unknown = {kind, type, data, size, value};
    return context != NULL && context->unknown != NULL && context->unknown(&unknown, context->unknown_key) != 0;
}

ssize_t v2xmsgset_NextToken(const asn_codec_ctx_t* context, const asn_TYPE_descriptor_t* type, v2xmsgset_place_e place,
                            int* state, const void* buffer, size_t size, pxer_chunk_type_e* token) {
    const char* const text = buffer;
    const ssize_t length = xer_next_token(state, buffer, size, token);
    if (length <= 0 || context == NULL || context->unknown == NULL || place == V2XMSGSET_IN_SKIPPED) {
        return length;
    }
    const size_t count = (size_t)length;
    int isRefused = 0;
    if (*token == PXER_TEXT && place != V2XMSGSET_IN_VALUE && SkipSpace(text, 0, count) < count) {
        isRefused = v2xmsgset_ReportUnknown(context, ASN_UNKNOWN_TEXT, type, text, count, 0);
    } else if (*token == PXER_TAG && (place != V2XMSGSET_IN_BODY || text[1] == '/') && HasAttributes(text, count)) {
        // The decoder of a child element gets the child's start tag again.
        isRefused = v2xmsgset_ReportUnknown(context, ASN_UNKNOWN_ATTRIBUTE, NULL, text, count, 0);
    }
    return isRefused ? -1 : length;
}
