// Passes the log lines of the message codec to the daemon's log.
#pragma once

// Makes the codec log through v2xlog: same tags and levels, and a rate limit for each of its log statements. Lines of a
// tag that is not registered are dropped. Any thread; later calls change nothing.
void v2xspatconv_SetCodecLog();
