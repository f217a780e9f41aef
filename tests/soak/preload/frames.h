// Where a program is when it crashes goes to a file beside the control file, a frame a line.
#pragma once

void watchCrashes(const char* controlPath);
