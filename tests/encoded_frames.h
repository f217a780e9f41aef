// Frames of the message set in hex, made by an independent encoder.
#pragma once

namespace encoded {

// SPAT with two intersections. Its phase states have UTC timing, a countdown or no timing. Optional members are present
// and absent, and values include the bounds of each range.
inline constexpr const char* spat =
    "37FF01581FFFE34DC3A7720A7D02EFFFF800400000EA5F3C7FC543F8CA100008CA03039C800018C9F020009CF800280054650800780800A009"
    "604001C000000000240000";

inline constexpr const char* map = "1018080B10001000235A4E9016B49D2010";
inline constexpr const char* rsm = "204616263646566676835A4E9016B49D2010003FFFE600021003004900180040020040";
inline constexpr const char* rsi = "400AC2C4C6C8CACCCED06B49D202D693A402";

// SPAT of a newer edition: one phase with two states, the first with an unknown alternative of the timing.
inline constexpr const char* newerSpat = "300200000100000020A3800107420000000078";

// Message 10 of the second stage with the content 01 02 03.
inline constexpr const char* extension = "8006000A03010203";

} // namespace encoded
