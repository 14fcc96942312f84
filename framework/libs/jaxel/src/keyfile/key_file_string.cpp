#include "keyfile/keyfile.h"

namespace jx {
namespace {

constexpr unsigned char kFirstAllowed = 32;
constexpr unsigned char kLastAllowed = 126;

}  // namespace

// Printable ASCII only, space included; the empty string is allowed.
int key_file_string_valid(const char *s) noexcept {
    if (s == nullptr) {
        return 0;
    }
    for (const char *p = s; *p != '\0'; ++p) {
        const auto byte = static_cast<unsigned char>(*p);
        if (byte < kFirstAllowed || byte > kLastAllowed) {
            return 0;
        }
    }
    return 1;
}

}  // namespace jx
