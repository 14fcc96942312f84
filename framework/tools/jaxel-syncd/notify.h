// The service manager's notifications; nothing happens without libsystemd.
#pragma once

namespace jx::tools {

void notify_ready();
void notify_stopping();
// Interval at which to send keep-alives, 0 when no watchdog is set.
unsigned watchdog_interval_ms();
void notify_watchdog();

}  // namespace jx::tools
