#include "safestr.h"

#include <stdio.h>

SAFESTR_API int vsnprintf_s(char *dest, size_t dest_max, size_t count, const char *fmt, va_list ap)
{
    size_t limit;
    int written;

    if (dest == NULL || dest_max == 0) {
        errno = EINVAL;
        return -1;
    }
    if (fmt == NULL) {
        dest[0] = '\0';
        errno = EINVAL;
        return -1;
    }
    limit = count < dest_max - 1 ? count : dest_max - 1;
    written = vsnprintf(dest, dest_max, fmt, ap);
    if (written < 0) {
        dest[0] = '\0';
        return -1;
    }
    if ((size_t)written > limit) {
        dest[0] = '\0';
        errno = ERANGE;
        return -1;
    }
    return written;
}

SAFESTR_API int snprintf_s(char *dest, size_t dest_max, size_t count, const char *fmt, ...)
{
    va_list ap;
    int rc;

    va_start(ap, fmt);
    rc = vsnprintf_s(dest, dest_max, count, fmt, ap);
    va_end(ap);
    return rc;
}
