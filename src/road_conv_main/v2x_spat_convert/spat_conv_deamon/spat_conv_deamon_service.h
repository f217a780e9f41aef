// Notifies the service manager (systemd). Without a service manager the functions have no effect. Main thread.
#pragma once

#include <cstdint>
#include <string>

// Reports that the start is complete.
void v2xspatconv_ServiceReady(void);

// Reports that the stop has begun. Never waits.
void v2xspatconv_ServiceStopping(void);

// Reports the state of the daemon as one line. Never waits. Returns false if the line is lost: there is no service
// manager, or it does not read its socket.
bool v2xspatconv_ServiceStatus(const std::string& line);

// Returns the exit status after a refused configuration: 78 (EX_CONFIG) tells the service manager not to restart the
// daemon. Without a service manager the status is 0.
int32_t v2xspatconv_ServiceRefusedStatus(void);

// Resets the watchdog timer. Does nothing if the service manager runs no watchdog for the daemon.
void v2xspatconv_ServiceAlive(void);

// Returns the longest pause between two calls of v2xspatconv_ServiceAlive in milliseconds: half the watchdog's
// time-out, limited to `maxInterval`. Without a watchdog, returns `maxInterval`.
int32_t v2xspatconv_ServiceInterval(int32_t maxInterval);
