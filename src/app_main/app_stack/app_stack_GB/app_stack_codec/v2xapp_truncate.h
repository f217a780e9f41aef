// Converts floating-point values to the integers of the message set.
#pragma once

#include <limits>

// Returns the value without its fraction. A value outside the range of a long becomes the nearest long. NaN becomes the
// lowest long, which is outside the range of every message element: range checks report it. Any thread.
inline long v2xapp_Truncate(double value) {
    constexpr auto LOWEST =
        static_cast<double>(std::numeric_limits<long>::min()); // a power of two, which a double stores exactly
    if (!(value > LOWEST)) {
        return std::numeric_limits<long>::min();
    }
    return value < -LOWEST ? static_cast<long>(value) : std::numeric_limits<long>::max();
}
