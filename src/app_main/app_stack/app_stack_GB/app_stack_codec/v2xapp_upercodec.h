// Encodes, decodes, releases and prints a MessageFrame of the national C-V2X application-layer message set. The
// encodings are unaligned PER (ITU-T X.691), which travels on the air, and XER (ITU-T X.693), which is readable text.
//
// Failures are logged at level 2 under the tag "UPER" if the process has registered that tag. Without a log the
// functions work the same. Every function may be called on any thread; use one frame on one thread at a time.
#pragma once

#include <cstdint>

#include "v2x/v2xmsgset.h"

// A MessageFrame allocated by a decoder or by the SPAT builder (v2xapp_gbspat.h), or null. The owner releases it with
// v2xcodec_freeStrcut.
using ASNSTRUCT_HANDLE = void*;

// Message types, with the values of MessageFrame_PR. The extension alternative, 6, has no name here.
enum v2xcodec_msgType_e : int32_t {
    V2XCODEC_MSG_UNKNOW = 0,
    V2XCODEC_MSG_BSM = 1,
    V2XCODEC_MSG_MAP = 2,
    V2XCODEC_MSG_RSM = 3,
    V2XCODEC_MSG_SPAT = 4,
    V2XCODEC_MSG_RSI = 5,
};

// Encodes the frame as unaligned PER into `enc_bufLen` bytes at `enc_buf`; a negative length counts as 0.
// *encLen receives the size of the complete encoding in bytes, truncated to 16 bits. Compare it with enc_bufLen: when
// it is larger, the result is still 0, but the buffer holds no usable encoding. Nothing is written beyond the buffer.
// Returns 0; -1 if hdl, enc_buf or encLen is null; -2 if a value cannot be encoded, because a number, size or
// alternative violates its constraint. The log names the type. On failure *encLen is unchanged.
int32_t v2xcodec_uperEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, int32_t enc_bufLen, int16_t* encLen);

// Decodes one frame that fills all `enc_bufLen` bytes at `enc_buf`.
// Returns:
//  0: *hdl receives a new frame, which the caller owns.
// -1: a pointer is null or the length is below 1. *hdl is unchanged.
// -2: the bytes are not a frame, end too early, or hold a message type of a newer edition. *hdl becomes null. Only
// every
//     202nd of these failures is logged; all threads share the count.
// -3: bytes follow a complete frame. *hdl is unchanged.
// Additions of a newer edition inside a known message are ignored: an unknown alternative leaves its choice empty
// (present 0), and an unknown enumerated value becomes the first value of its type. Decoding does not enforce the
// constraints on numbers and on the sizes of lists and strings; call asn_check_constraints where they matter.
int32_t v2xcodec_uperDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int16_t enc_bufLen);

// Encodes the frame as basic XER text without a terminating NUL. The caller sets *enc_bufLen to the size of enc_buf in
// bytes. On success it receives the size of the complete text; compare the two as for v2xcodec_uperEnc.
// Returns 0; -1 if hdl, enc_buf or enc_bufLen is null; -2 if a value cannot be encoded (*enc_bufLen is unchanged).
int32_t v2xcodec_xerEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, uint32_t* enc_bufLen);

// Decodes one frame from basic or canonical XER. Text after the frame is ignored; constraints are not checked.
// Returns 0, and *hdl receives a new frame, which the caller owns; -1 if a pointer is null or the length is below 1; -2
// if the text is not a frame. On failure *hdl is unchanged.
int32_t v2xcodec_xerDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int32_t enc_bufLen);

// Releases the frame at *hdl with everything in it and sets *hdl to null. If hdl or *hdl is null, logs "struct is
// null".
void v2xcodec_freeStrcut(ASNSTRUCT_HANDLE* hdl);

// Prints the frame as XER on standard error. Always returns -1.
int32_t v2xcodec_print(ASNSTRUCT_HANDLE hdl);

// Returns the message type of the frame at *hdl: a named value, or 6 for the extension alternative. Returns
// V2XCODEC_MSG_UNKNOW if hdl or *hdl is null or the frame is empty. `msgKey` is ignored.
v2xcodec_msgType_e v2xcodec_getMsgType(ASNSTRUCT_HANDLE* hdl, void** msgKey);
