#include "frame/log.h"

#include <cstdarg>
#include <unistd.h>

#include <glib.h>
#include <glib/gprintf.h>

#include "frame/io.h"
#include "frame/path.h"
#include "safestr.h"

namespace jx {

// NOLINTNEXTLINE(cert-dcl50-cpp): a printf-style line is what every caller writes.
void log_line(const char *source, int line, const char *format, ...) noexcept {
    char message[256] = {};
    va_list args;
    va_start(args, format);
    const int rc = vsnprintf_s(message, sizeof message, sizeof message, format, args);
    va_end(args);
    if (rc < 0) {
        g_printf("ERROR: [jaxel][%d]: snprintf_s failed.\n", line);
    }
    io().syslog(kLogPriority, "[%d] %s(%d): %s\n", static_cast<int>(getpid()), base_name(source),
                line, message);
}

void log_errno(const char *source, int line, const char *call, const char *name, int error,
               bool spaced) noexcept {
    if (spaced) {
        log_line(source, line, "%s %s failed: errno %d(%s).", call, name, error, g_strerror(error));
    } else {
        log_line(source, line, "%s(%s) failed: errno %d(%s).", call, name, error,
                 g_strerror(error));
    }
}

int32_t refuse_argument(const char *source, int line, const char *argument, int32_t code) noexcept {
    log_line(source, line, "input para invalid: %s.", argument);
    return code;
}

}  // namespace jx
