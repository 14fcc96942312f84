#ifndef SAFESTR_H
#define SAFESTR_H

#include <errno.h>
#include <stdarg.h>
#include <stddef.h>

#if defined(__GNUC__)
#define SAFESTR_API __attribute__((visibility("default")))
#define SAFESTR_PRINTF(fmt, first) __attribute__((format(printf, fmt, first)))
#else
#define SAFESTR_API
#define SAFESTR_PRINTF(fmt, first)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Bounded string and memory functions. dest_max is always the size of the
 * buffer at dest in bytes.
 */

/*
 * Formats at most min(count, dest_max - 1) characters into dest. Returns the
 * number of characters written (dest NUL-terminated). Returns -1 with errno
 * EINVAL when dest or fmt is NULL or dest_max is 0, and -1 with errno ERANGE
 * (or the formatting error) when the text does not fit; dest is then "" as long
 * as dest and dest_max are usable.
 */
SAFESTR_API int snprintf_s(char *dest, size_t dest_max, size_t count, const char *fmt, ...)
    SAFESTR_PRINTF(4, 5);
SAFESTR_API int vsnprintf_s(char *dest, size_t dest_max, size_t count, const char *fmt, va_list ap)
    SAFESTR_PRINTF(4, 0);

/*
 * Copies min(count, strlen(src)) characters and a NUL. 0 on success, ERANGE
 * when they do not fit in dest_max, EINVAL for NULL arguments or dest_max 0;
 * on failure dest is "" when it is usable.
 */
SAFESTR_API int strncpy_s(char *dest, size_t dest_max, const char *src, size_t count);

/*
 * Appends min(count, strlen(src)) characters and a NUL to the string in dest.
 * 0 on success, ERANGE when the result does not fit in dest_max, EINVAL for
 * NULL arguments, dest_max 0 or dest not terminated within dest_max; on
 * failure dest is "" when it is usable.
 */
SAFESTR_API int strncat_s(char *dest, size_t dest_max, const char *src, size_t count);

/* Copies count bytes, overlap allowed. EINVAL for NULL, ERANGE (nothing
 * copied) when count > dest_max. */
SAFESTR_API int memmove_s(void *dest, size_t dest_max, const void *src, size_t count);

/* Fills min(count, dest_max) bytes with c, never optimised away. EINVAL for
 * NULL, ERANGE when count > dest_max (dest_max bytes are still filled). */
SAFESTR_API int memset_s(void *dest, size_t dest_max, int c, size_t count);

#ifdef __cplusplus
}
#endif

#endif
