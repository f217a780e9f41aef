// For the targets whose input ends at the stack application: configuration before, checks of the frames after.
#pragma once

#include "exact_copy.h"

// Loads a configuration and opens the (fake) sockets at the first call; aborts when that fails.
void startHandOver();

// Aborts when a frame's lengths disagree or exceed the record's size; then deletes recorded frames and log lines.
void checkHandOver();
