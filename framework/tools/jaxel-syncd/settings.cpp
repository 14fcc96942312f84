#include "settings.h"

#include <cstdio>
#include <utility>

#include <glib.h>

#include "frame/raii.h"

namespace jx::tools {
namespace {

constexpr char kGroup[] = "syncd";

// A missing key leaves the value; one that is not an integer of T's range is refused.
template <typename T>
bool read_key(GKeyFile *file, const char *key, T &value) {
    GError *error = nullptr;
    const gint64 read = g_key_file_get_int64(file, kGroup, key, &error);
    if (error == nullptr && std::in_range<T>(read)) {
        value = static_cast<T>(read);
        return true;
    }
    const bool absent = error != nullptr && (error->code == G_KEY_FILE_ERROR_KEY_NOT_FOUND ||
                                             error->code == G_KEY_FILE_ERROR_GROUP_NOT_FOUND);
    if (error != nullptr) {
        g_error_free(error);
    }
    if (!absent) {
        std::fprintf(stderr, "jaxel-syncd: [%s] %s: not a usable integer\n", kGroup, key);
    }
    return absent;
}

bool sane(const Settings &s) {
    return s.debounce_ms >= 0 && s.max_delay_ms >= s.debounce_ms && s.rescan_sec > 0 &&
           s.bytes_per_day >= 0 && s.burst > 0;
}

// False (with a message on stderr) when the file exists but cannot be used.
bool apply_config_file(Settings &settings) {
    if (settings.config.empty()) {
        return true;
    }
    const KeyFilePtr file(g_key_file_new());
    GError *error = nullptr;
    if (!g_key_file_load_from_file(file.get(), settings.config.c_str(), G_KEY_FILE_NONE, &error)) {
        std::fprintf(stderr, "jaxel-syncd: %s: %s\n", settings.config.c_str(), error->message);
        g_error_free(error);
        return false;
    }
    return read_key(file.get(), "debounce_ms", settings.debounce_ms) &&
           read_key(file.get(), "max_delay_ms", settings.max_delay_ms) &&
           read_key(file.get(), "rescan_sec", settings.rescan_sec) &&
           read_key(file.get(), "bytes_per_day", settings.bytes_per_day) &&
           read_key(file.get(), "burst", settings.burst);
}

}  // namespace

bool load_settings(Settings &settings) {
    if (!apply_config_file(settings)) {
        return false;
    }
    if (!sane(settings)) {
        std::fprintf(stderr,
                     "jaxel-syncd: settings out of range: need 0 <= debounce <= max delay, "
                     "rescan > 0, bytes per day >= 0, burst > 0\n");
        return false;
    }
    return true;
}

}  // namespace jx::tools
