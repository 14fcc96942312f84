// One system-log line per failure, the only way the library reports why.
#pragma once

#include <cerrno>
#include <cstdint>

namespace jx {

// Priority of every line: facility local0, level debug.
inline constexpr int kLogPriority = 135;

void log_line(const char *source, int line, const char *format, ...) noexcept
    __attribute__((format(printf, 3, 4)));

// "<call>(<name>) failed: errno <n>(<text>)." or, spaced, "<call> <name> failed:
// errno <n>(<text>)." for the errno a failed call left behind.
void log_errno(const char *source, int line, const char *call, const char *name, int error,
               bool spaced) noexcept;

// Logs "input para invalid: <argument>." and hands back code: a refused
// argument is reported by name, never by its (absent) value.
int32_t refuse_argument(const char *source, int line, const char *argument, int32_t code) noexcept;

}  // namespace jx

#define JX_LOG(...) ::jx::log_line(__FILE__, __LINE__, __VA_ARGS__)
// errno is read before any argument can change it: base_name and c_str never do.
#define JX_LOG_ERRNO(call, name) ::jx::log_errno(__FILE__, __LINE__, call, name, errno, false)
#define JX_LOG_ERRNO_SPACED(call, name) ::jx::log_errno(__FILE__, __LINE__, call, name, errno, true)
#define JX_REFUSE(code, argument) ::jx::refuse_argument(__FILE__, __LINE__, argument, code)
