// Set-up and checks for the fuzz targets of modules that send frames to the stack application.
#pragma once

#include "exact_copy.h"

// The first call loads a configuration and opens the fake sockets, and aborts the process if this fails. Later calls do
// nothing.
void startHandOver();

// Aborts the process if the length fields of a recorded frame differ from its size, or if its record is too long.
// Deletes the recorded frames and log lines.
void checkHandOver();
