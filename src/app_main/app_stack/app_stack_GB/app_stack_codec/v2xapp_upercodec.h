// Encodes, decodes, frees and prints a MessageFrame of the national C-V2X application-layer message set. The encodings
// are unaligned PER (ITU-T X.691), the format of the radio interface, and XER (ITU-T X.693), a text format.
//
// The functions log failures as errors under the tag "UPER" (v2xapp_log.h). Every function may run on any thread; do
// not use the same frame on two threads at once.
#pragma once

#include <stdint.h>

#include "v2x/v2xmsgset.h"

#ifdef __cplusplus
extern "C" {
#endif

// Null, or a MessageFrame that a decoder or the SPAT builder (v2xapp_gbspat.h) has allocated. The owner frees the frame
// with v2xcodec_freeStrcut.
typedef void* ASNSTRUCT_HANDLE;

// Message types. The values equal those of MessageFrame_PR. The extension alternative (6) has no enumerator.
typedef enum v2xcodec_msgType_e {
    V2XCODEC_MSG_UNKNOW = 0,
    V2XCODEC_MSG_BSM = 1,
    V2XCODEC_MSG_MAP = 2,
    V2XCODEC_MSG_RSM = 3,
    V2XCODEC_MSG_SPAT = 4,
    V2XCODEC_MSG_RSI = 5,
} v2xcodec_msgType_e;

// Encodes the frame as unaligned PER into `enc_bufLen` bytes at `enc_buf`; a negative length counts as 0.
// *encLen receives the size of the complete encoding in bytes, truncated to 16 bits. Compare *encLen with enc_bufLen:
// if the encoding is larger than the buffer, the result is still 0, but the buffer contains no valid encoding. The
// function never writes beyond the buffer.
// Returns 0; -1 if hdl, enc_buf or encLen is null; -2 if a number, size or alternative violates its constraint. The log
// line names the failing type; for a value inside a list it names only the outermost list, for example
// IntersectionStateList. On failure *encLen stays unchanged.
int32_t v2xcodec_uperEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, int32_t enc_bufLen, int16_t* encLen);

// Decodes one frame, which must fill all `enc_bufLen` bytes at `enc_buf`.
// Returns:
//  0: *hdl receives a new frame, which the caller owns.
// -1: a pointer is null or the length is below 1. *hdl stays unchanged.
// -2: the bytes are not a complete frame, or the message type belongs to a newer edition. *hdl becomes null. Every
//     202nd of these failures is logged. All threads share the count, and a success does not reset it.
// -3: bytes follow a complete frame. *hdl stays unchanged.
// The decoder ignores additions of a newer edition inside a known message: an unknown alternative leaves its choice
// empty (present 0), and an unknown enumerated value becomes the first value of its type. The decoder does not check
// the ranges of numbers or the sizes of lists and strings. asn_check_constraints does, but it also rejects an empty
// choice.
int32_t v2xcodec_uperDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int16_t enc_bufLen);

// Encodes the frame as basic XER text without a terminating NUL. The caller sets *enc_bufLen to the size of enc_buf in
// bytes. On success *enc_bufLen receives the size of the complete text; compare both sizes as for v2xcodec_uperEnc.
// Returns 0; -1 if hdl, enc_buf or enc_bufLen is null; -2 if a value cannot be encoded (*enc_bufLen stays unchanged).
int32_t v2xcodec_xerEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, uint32_t* enc_bufLen);

// Decodes one frame from basic or canonical XER. Ignores unknown elements inside a known message, attributes, text
// between elements and text after the frame, and checks no constraints. On success *hdl receives a new frame, which the
// caller owns. On failure *hdl stays unchanged.
// Returns 0; -1 if a pointer is null or the length is below 1; -2 if the text is not a frame or its message type is
// unknown.
int32_t v2xcodec_xerDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int32_t enc_bufLen);

// Frees the frame at *hdl with all members and sets *hdl to null. If hdl or *hdl is null, logs "struct is null".
void v2xcodec_freeStrcut(ASNSTRUCT_HANDLE* hdl);

// Prints the frame as XER on standard error. Legacy: always returns -1.
int32_t v2xcodec_print(ASNSTRUCT_HANDLE hdl);

// Returns the message type of the frame at *hdl; 6 for the extension alternative; V2XCODEC_MSG_UNKNOW if hdl or *hdl is
// null or the frame is empty. The function ignores `msgKey`.
v2xcodec_msgType_e v2xcodec_getMsgType(ASNSTRUCT_HANDLE* hdl, void** msgKey);

#ifdef __cplusplus
}
#endif
