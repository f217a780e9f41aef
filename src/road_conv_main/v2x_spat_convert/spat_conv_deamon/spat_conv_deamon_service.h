// What the daemon tells a service manager that started it (systemd); nothing when there is none.
#pragma once

#include <cstdint>

void v2xspatconv_ServiceReady(void);
void v2xspatconv_ServiceStopping(void);
// Sends nothing when the service manager asked for no watchdog.
void v2xspatconv_ServiceAlive(void);

// Longest pause in milliseconds between two calls of v2xspatconv_ServiceAlive that keeps the service manager's watchdog
// content: half its time; at most `atMost`, which is also the answer without a watchdog.
int32_t v2xspatconv_ServiceInterval(int32_t atMost);
