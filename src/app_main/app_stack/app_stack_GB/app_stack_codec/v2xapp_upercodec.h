// Encodes, decodes, releases and prints a MessageFrame of the national C-V2X application-layer message set: unaligned
// PER (ITU-T X.691), which travels on the air, and XER (ITU-T X.693), which people read.
//
// Failures are logged at level 2 under the tag "UPER" where the process has registered it; without a log the calls do
// the same and say nothing. Every call may be made on any thread; one frame belongs to one thread at a time.
#pragma once

#include <cstdint>

#include "v2x/v2xmsgset.h"

// A MessageFrame as the decoders or the SPAT builder (v2xapp_gbspat.h) allocate it; null = none. Its owner releases it
// with v2xcodec_freeStrcut.
using ASNSTRUCT_HANDLE = void*;

// What a frame carries: the values of MessageFrame_PR. The extension alternative, 6, has no name here.
enum v2xcodec_msgType_e : int32_t {
    V2XCODEC_MSG_UNKNOW = 0,
    V2XCODEC_MSG_BSM = 1,
    V2XCODEC_MSG_MAP = 2,
    V2XCODEC_MSG_RSM = 3,
    V2XCODEC_MSG_SPAT = 4,
    V2XCODEC_MSG_RSI = 5,
};

// Encodes the frame as unaligned PER into at most `enc_bufLen` bytes at `enc_buf`; a length below 0 counts as 0.
// *encLen becomes the size of the whole encoding in bytes, cut to 16 bits. Compare it with enc_bufLen: where it is
// above, the buffer holds no usable encoding, nothing was written beyond it, and the result is 0 all the same. Returns
// 0; -1 for a null hdl, enc_buf or encLen; -2 when the frame holds a value that cannot be encoded (a number, size or
// alternative outside its constraint; the log names the type). *encLen is left alone then.
int32_t v2xcodec_uperEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, int32_t enc_bufLen, int16_t* encLen);

// Decodes one frame from all of the `enc_bufLen` bytes at `enc_buf`.
// Returns 0 and a new frame at *hdl, which the caller owns; -1 for a null pointer or a length below 1 (*hdl untouched);
// -2 when the bytes are no frame, end too early, or hold a message of a newer edition (*hdl becomes null); -3 when
// bytes are left over after a whole frame
// (*hdl untouched).
// What a newer edition of the message set added to a message is skipped: an alternative that is not known here leaves
// its choice with none (present 0), an enumerated value reads as the type's first. Numbers, list and string sizes may
// be outside their constraints: check with asn_check_constraints where it matters. Of consecutive -2 the 202nd is
// logged, and every 202nd after it, over all threads together.
int32_t v2xcodec_uperDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int16_t enc_bufLen);

// Encodes the frame as basic XER, text without a NUL. *enc_bufLen: in, the bytes at enc_buf; out, the size of the whole
// text, which is to be compared with what went in, as above.
// Returns 0; -1 for a null hdl, enc_buf or enc_bufLen; -2 when a value cannot be encoded (*enc_bufLen is left alone).
int32_t v2xcodec_xerEnc(ASNSTRUCT_HANDLE hdl, uint8_t* enc_buf, uint32_t* enc_bufLen);

// Decodes one frame from XER, basic or canonical; what follows the frame is not looked at.
// Returns 0 and a new frame at *hdl, which the caller owns; -1 for a null pointer or a length below 1; -2 when the text
// is no frame. *hdl is untouched by a failure. Constraints are not checked.
int32_t v2xcodec_xerDec(ASNSTRUCT_HANDLE* hdl, uint8_t* enc_buf, int32_t enc_bufLen);

// Releases the frame at *hdl and all that belongs to it, and sets *hdl to null. A null hdl or *hdl logs "struct is
// null".
void v2xcodec_freeStrcut(ASNSTRUCT_HANDLE* hdl);

// Prints the frame as XER on standard error. Returns -1 always.
int32_t v2xcodec_print(ASNSTRUCT_HANDLE hdl);

// What the frame at *hdl carries: one of the named values, 6 for the extension alternative, V2XCODEC_MSG_UNKNOW for a
// null hdl or *hdl and for a frame that carries nothing known. `msgKey` is not used.
v2xcodec_msgType_e v2xcodec_getMsgType(ASNSTRUCT_HANDLE* hdl, void** msgKey);
