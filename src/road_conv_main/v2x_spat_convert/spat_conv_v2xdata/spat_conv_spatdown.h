// SPAT down: receives the cloud's documents in fragments and sends SPAT records to the stack application.
#pragma once

// Receive callback of the topic ".../spat/down". Collects fragments; a fragment shorter than 1024 bytes ends the
// document. Reads the document (at most 20479 bytes, up to a NUL) and sends its first intersection to the stack
// application as an IPC SPAT record. A document that cannot be read is logged under the tag "DOWN" and dropped. The key
// rsuSpatConfigInfo.Corrections.SpatDown selects the legacy or the corrected record. The caller owns `data`. Any
// thread, one call at a time. Needs about 16 KiB of stack, or more for nested documents (the parser accepts 1000
// levels).
void v2xspatconv_ddsRecvSpatDown(void* data, unsigned int len);
