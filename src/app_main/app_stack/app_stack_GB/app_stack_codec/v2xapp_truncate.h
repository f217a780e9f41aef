// From floating-point measures to the whole numbers of a message.
#pragma once

#include <limits>

// The value without its fraction. What a long cannot hold becomes the nearest number that it can, and what is not a
// number the lowest one: outside the range of every element of the message set, so that it is noticed there. Any
// thread.
inline long v2xapp_Truncate(double value) {
    constexpr auto LOWEST = static_cast<double>(std::numeric_limits<long>::min()); // a power of two, hence exact
    if (!(value > LOWEST)) {
        return std::numeric_limits<long>::min();
    }
    return value < -LOWEST ? static_cast<long>(value) : std::numeric_limits<long>::max();
}
