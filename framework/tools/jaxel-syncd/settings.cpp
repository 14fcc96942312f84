#include "settings.h"

#include <cstdio>

#include <glib.h>

#include "frame/raii.h"

namespace jx::tools {
namespace {

constexpr char kGroup[] = "syncd";

template <typename T>
void read_key(GKeyFile *file, const char *key, T &value) {
    GError *error = nullptr;
    const gint64 read = g_key_file_get_int64(file, kGroup, key, &error);
    if (error == nullptr) {
        value = static_cast<T>(read);
    } else {
        g_error_free(error);
    }
}

}  // namespace

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
    read_key(file.get(), "debounce_ms", settings.debounce_ms);
    read_key(file.get(), "max_delay_ms", settings.max_delay_ms);
    read_key(file.get(), "rescan_sec", settings.rescan_sec);
    read_key(file.get(), "bytes_per_day", settings.bytes_per_day);
    read_key(file.get(), "burst", settings.burst);
    return true;
}

}  // namespace jx::tools
