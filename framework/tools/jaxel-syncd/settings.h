// The service's settings: command-line options, optionally overridden by the
// [syncd] group of a key file that SIGHUP reads again.
#pragma once

#include <cstdint>
#include <string>

namespace jx::tools {

struct Settings {
    int debounce_ms = 2000;
    int max_delay_ms = 30000;  // cap of the debounce, so a busy file is not starved
    int rescan_sec = 3600;
    int lock_wait_ms = 1000;
    int64_t bytes_per_day = 64 * 1024 * 1024;
    int64_t burst = 4 * 1024 * 1024;
    std::string config;
};

// Applies the configuration file, then checks the values wherever they came
// from; false (with a message on stderr) when they cannot be used.
bool load_settings(Settings &settings);

}  // namespace jx::tools
