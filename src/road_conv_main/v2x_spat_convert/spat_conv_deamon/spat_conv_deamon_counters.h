// Writes the counters of every path to the log.
#pragma once

// Writes at level 4 a line "counters PATH: NAME COUNT, ..." for each path with a count that changed since the last call
// (with `all`: for each path that has a count). Counts of 0 are left out. Main thread.
void v2xspatconv_LogCounters(bool all);
