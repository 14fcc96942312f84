#ifndef KEL_H
#define KEL_H

#include <stdint.h>

#if defined(__GNUC__)
#define KEL_API __attribute__((visibility("default")))
#else
#define KEL_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Runs program (used as given, no PATH search and no shell) with exactly argv,
 * whose argv[0] names the program again and which ends with NULL, and waits
 * for it. The child gets the caller's environment, default signal dispositions
 * and an empty signal mask; descriptors opened with O_CLOEXEC stay behind.
 *
 * Returns 0 when the program exited with status 0, -1 (errno set) when it
 * could not be run or waited for, its exit status when that is not 0, and
 * 128 + the signal number when a signal ended it.
 */
KEL_API int kel_system_s(const char *program, char *const argv[]);

/* Sleeps units milliseconds, resuming after signal handlers; 0 returns at once. */
KEL_API void kel_task_delay(uint32_t units);

#ifdef __cplusplus
}
#endif

#endif
