// One system-log line per failure, the only way the library reports why.
#pragma once

namespace jx {

// Priority of every line: facility local0, level debug.
inline constexpr int kLogPriority = 135;

void log_line(const char *source, int line, const char *format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

}  // namespace jx

#define JX_LOG(...) ::jx::log_line(__FILE__, __LINE__, __VA_ARGS__)
