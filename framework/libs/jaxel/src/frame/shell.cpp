#include "frame/shell.h"

#include <cstring>

#include <glib.h>

#include "frame/io.h"

namespace jx {
namespace {

constexpr char kSafePunctuation[] = "._-/+,:@%=";
constexpr char kQuotedQuote[] = "'\\''";

bool is_safe(const char *arg) noexcept {
    if (*arg == '\0') {
        return false;
    }
    for (const char *p = arg; *p != '\0'; ++p) {
        if (!g_ascii_isalnum(*p) && std::strchr(kSafePunctuation, *p) == nullptr) {
            return false;
        }
    }
    return true;
}

// Appends text to out at *used; false when it does not fit with the NUL.
bool append(char *out, std::size_t size, std::size_t *used, const char *text,
            std::size_t len) noexcept {
    if (len >= size - *used) {
        return false;
    }
    std::memcpy(out + *used, text, len);
    *used += len;
    out[*used] = '\0';
    return true;
}

bool quote_into(const char *arg, char *out, std::size_t size) noexcept {
    std::size_t used = 0;
    out[0] = '\0';
    if (is_safe(arg)) {
        return append(out, size, &used, arg, std::strlen(arg));
    }
    if (!append(out, size, &used, "'", 1)) {
        return false;
    }
    for (const char *p = arg; *p != '\0'; ++p) {
        const bool ok = *p == '\'' ? append(out, size, &used, kQuotedQuote, sizeof kQuotedQuote - 1)
                                   : append(out, size, &used, p, 1);
        if (!ok) {
            return false;
        }
    }
    return append(out, size, &used, "'", 1);
}

}  // namespace

bool shell_quote(const char *arg, char *out, std::size_t size) noexcept {
    if (out == nullptr || size == 0) {
        return false;
    }
    if (arg == nullptr || !quote_into(arg, out, size)) {
        out[0] = '\0';
        return false;
    }
    return true;
}

int run_shell(const char *command) noexcept {
    char program[] = "/bin/sh";
    char flag[] = "-c";
    char *const argv[] = {program, flag, const_cast<char *>(command), nullptr};
    return io().run(program, argv);
}

}  // namespace jx
