// Notifications to the service manager (systemd). Without one they do nothing.
#pragma once

#include <cstdint>

void v2xspatconv_ServiceReady(void);
void v2xspatconv_ServiceStopping(void);
// Does nothing when the service manager asked for no watchdog.
void v2xspatconv_ServiceAlive(void);

// Longest pause in milliseconds between two calls of v2xspatconv_ServiceAlive: half the watchdog's time, at most
// `atMost`. Without a watchdog `atMost`.
int32_t v2xspatconv_ServiceInterval(int32_t atMost);
