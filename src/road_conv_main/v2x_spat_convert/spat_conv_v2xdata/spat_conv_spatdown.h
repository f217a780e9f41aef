// SPAT down: the cloud's documents, from the fragments of their topic to the stack application.
#pragma once

// Receive callback of the topic ".../spat/down": collects fragments until one is shorter than 1024 bytes, reads the
// document (at most 20479 bytes, up to a NUL), and hands its first intersection to the stack application as an IPC SPAT
// record. A document that cannot be read is logged under the tag "DOWN" and dropped. The key
// rsuSpatConfigInfo.Corrections.SpatDown selects the legacy or the corrected record. The caller keeps the bytes. One
// call at a time, on any thread; needs about 16 KiB of stack, more for deeply nested documents (the parser stops at
// 1000 levels).
void v2xspatconv_ddsRecvSpatDown(void* data, unsigned int len);
