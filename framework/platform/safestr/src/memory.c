#include "safestr.h"

#include <string.h>

SAFESTR_API int memmove_s(void *dest, size_t dest_max, const void *src, size_t count)
{
    if (dest == NULL || src == NULL) {
        return EINVAL;
    }
    if (count > dest_max) {
        return ERANGE;
    }
    if (count != 0) {
        memmove(dest, src, count);
    }
    return 0;
}

SAFESTR_API int memset_s(void *dest, size_t dest_max, int c, size_t count)
{
    const size_t n = count < dest_max ? count : dest_max;

    if (dest == NULL) {
        return EINVAL;
    }
    memset(dest, c, n);
    /* Callers wipe secrets that are never read again; the barrier keeps the
     * compiler from dropping the store as dead. */
    __asm__ __volatile__("" : : "r"(dest) : "memory");
    return count > dest_max ? ERANGE : 0;
}
