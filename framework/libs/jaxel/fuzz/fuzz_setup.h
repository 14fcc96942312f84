// Set-up shared by the fuzz targets: a private mount namespace with tmpfs over
// /opt and /dev/shm (as the tests use), and log lines kept out of the system log.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "frame/io.h"
#include "support/sandbox.h"

namespace jx::fuzz {

inline void drop_log_line(int, const char *, ...) {}

// Call from LLVMFuzzerInitialize.
inline int enter_sandbox() {
    if (!test::enter_sandbox()) {
        std::abort();
    }
    io().syslog = drop_log_line;
    return 0;
}

inline std::string printable(const std::string &bytes) {
    std::string text;
    for (const unsigned char c : bytes) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, c >= ' ' && c <= '~' ? "%c" : "\\x%02x", c);
        text += escaped;
    }
    return text;
}

// Aborts with both answers when they differ, which libFuzzer reports as a finding.
inline void require_equal(const std::string &got, const std::string &expected) {
    if (got != expected) {
        std::fprintf(stderr, "got      [%s]\nexpected [%s]\n", printable(got).c_str(),
                     printable(expected).c_str());
        std::abort();
    }
}

}  // namespace jx::fuzz
