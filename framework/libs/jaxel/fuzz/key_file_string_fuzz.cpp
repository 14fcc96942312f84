// The key-file string check on random strings: it accepts exactly the strings
// of printable ASCII, and every string it accepts comes back whole from a key
// file that stored it.
#include <algorithm>
#include <cstdlib>
#include <string>

#include <glib.h>

#include "fuzz_setup.h"
#include "keyfile/keyfile.h"

namespace {

std::string through_key_file(const std::string &value) {
    g_autoptr(GKeyFile) written = g_key_file_new();
    g_key_file_set_string(written, "g", "k", value.c_str());
    gsize length = 0;
    g_autofree gchar *text = g_key_file_to_data(written, &length, nullptr);
    g_autoptr(GKeyFile) read = g_key_file_new();
    g_autofree gchar *back = g_key_file_load_from_data(read, text, length, G_KEY_FILE_NONE, nullptr)
                                 ? g_key_file_get_string(read, "g", "k", nullptr)
                                 : nullptr;
    return back != nullptr ? back : "(not read back)";
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string value(std::string(reinterpret_cast<const char *>(data), size).c_str());
    const bool printable =
        std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c <= '~'; });
    const int valid = jx::key_file_string_valid(value.c_str());
    jx::fuzz::require_equal(std::to_string(valid), std::to_string(printable ? 1 : 0));
    if (valid == 1) {
        jx::fuzz::require_equal(through_key_file(value), value);
    }
    return 0;
}
