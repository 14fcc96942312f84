#include "safestr.h"

#include <string.h>

SAFESTR_API int strncpy_s(char *dest, size_t dest_max, const char *src, size_t count)
{
    size_t n;

    if (dest == NULL || dest_max == 0) {
        return EINVAL;
    }
    if (src == NULL) {
        dest[0] = '\0';
        return EINVAL;
    }
    n = strnlen(src, count);
    if (n >= dest_max) {
        dest[0] = '\0';
        return ERANGE;
    }
    memmove(dest, src, n);
    dest[n] = '\0';
    return 0;
}

SAFESTR_API int strncat_s(char *dest, size_t dest_max, const char *src, size_t count)
{
    size_t used;
    size_t n;

    if (dest == NULL || dest_max == 0) {
        return EINVAL;
    }
    used = strnlen(dest, dest_max);
    if (src == NULL || used == dest_max) {
        dest[0] = '\0';
        return EINVAL;
    }
    n = strnlen(src, count);
    if (n >= dest_max - used) {
        dest[0] = '\0';
        return ERANGE;
    }
    memmove(dest + used, src, n);
    dest[used + n] = '\0';
    return 0;
}
