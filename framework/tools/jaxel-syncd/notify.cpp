#include "notify.h"

#ifdef JAXEL_HAVE_SYSTEMD
#include <systemd/sd-daemon.h>
#endif

#include <cstdint>

namespace jx::tools {

#ifdef JAXEL_HAVE_SYSTEMD
void notify_ready() { (void)sd_notify(0, "READY=1"); }
void notify_stopping() { (void)sd_notify(0, "STOPPING=1"); }
void notify_watchdog() { (void)sd_notify(0, "WATCHDOG=1"); }
unsigned watchdog_interval_ms() {
    uint64_t usec = 0;
    // Half the timeout, as the manager advises.
    return sd_watchdog_enabled(0, &usec) > 0 ? static_cast<unsigned>(usec / 2000) : 0;
}
#else
void notify_ready() {}
void notify_stopping() {}
void notify_watchdog() {}
unsigned watchdog_interval_ms() { return 0; }
#endif

}  // namespace jx::tools
