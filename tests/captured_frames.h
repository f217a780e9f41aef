// Frames captured on the air, in hex.
#pragma once

namespace captured {

// SPAT: minute 513261, one intersection (region 1, id 33), 12 phases with one state each. The recording lacks the last
// 13 bits, from within the last phase's likely end time. The last five digits are added: zeros, as in the other phases
// without an end (3, 7 and 11).
inline constexpr const char* spat =
    "36B6FA9DB8E6C0080008010828058082300000006CC0408C0000001B30182500000000000A08C0000001090302300000004240E094000000"
    "000048250000000118140940000000460582500000000001A08C0000000550702300000001541E094000000"
    "00000";
inline constexpr const char* bsm =
    "07A4660606268666260636FE6063344D1BD748F8710A68800000004018018B9C46BEABE83FBFFFE07E2D07D03648000000";

} // namespace captured
