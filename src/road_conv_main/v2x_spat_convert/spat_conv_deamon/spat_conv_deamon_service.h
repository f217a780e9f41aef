// Notifies the service manager (systemd). Without a service manager the functions have no effect. Main thread.
#pragma once

#include <cstdint>

// Reports that the start is complete.
void v2xspatconv_ServiceReady(void);

// Reports that the stop has begun.
void v2xspatconv_ServiceStopping(void);

// Resets the watchdog timer. Does nothing if the service manager runs no watchdog for the daemon.
void v2xspatconv_ServiceAlive(void);

// Returns the longest pause between two calls of v2xspatconv_ServiceAlive in milliseconds: half the watchdog's
// time-out, limited to `maxInterval`. Without a watchdog, returns `maxInterval`.
int32_t v2xspatconv_ServiceInterval(int32_t maxInterval);
