// SPAT down: the cloud's documents, from the fragments of their topic to the stack application.
#pragma once

// Receive callback of the topic ".../spat/down": collects fragments until one is shorter than 1024 bytes, reads the
// document (at most 20479 bytes, up to a NUL), and hands its first intersection to the stack application as an IPC SPAT
// record. What cannot be read is logged under the tag "DOWN" and dropped. Whether the record is the settled or the
// corrected one says rsuSpatConfigInfo.Corrections.SpatDown.
// The bytes stay the caller's. One call at a time, on whatever thread; needs about 16 KiB of stack, and more for deeply
// nested documents, which the parser ends at 1000 levels.
void v2xspatconv_ddsRecvSpatDown(void* data, unsigned int len);
