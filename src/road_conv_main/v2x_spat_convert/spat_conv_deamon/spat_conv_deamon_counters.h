// Logs the counters of every data path.
#pragma once

// Logs one line "counters PATH: NAME COUNT, ..." at V2XLOG_INFO for each data path whose counts have changed since the
// previous call. With `all`, logs every data path that has a count. Counts of 0 are omitted. Main thread.
void v2xspatconv_LogCounters(bool all);
