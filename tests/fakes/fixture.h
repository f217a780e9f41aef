// Base of every fixture that uses the fakes.
#pragma once

#include <gtest/gtest.h>

#include "fakes.h"

namespace fakes {

class Fixture : public testing::Test {
protected:
    Fixture() { reset(); }
};

} // namespace fakes
