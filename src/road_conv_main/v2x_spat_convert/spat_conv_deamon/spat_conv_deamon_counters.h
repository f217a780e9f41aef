// What every path took, refused and dropped, into the log.
#pragma once

// Writes at level 4 a line "counters PATH: NAME COUNT, ..." for each path of which a count has changed since the last
// call, counts of 0 left out; for every path that has a count when `all`. On the main thread alone.
void v2xspatconv_LogCounters(bool all);
