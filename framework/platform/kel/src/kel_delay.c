#include "kel.h"

#include <errno.h>
#include <time.h>

KEL_API void kel_task_delay(uint32_t units)
{
    const int saved = errno;
    struct timespec left;
    struct timespec rest;

    left.tv_sec = (time_t)(units / 1000u);
    left.tv_nsec = (long)(units % 1000u) * 1000000L;
    while ((left.tv_sec != 0 || left.tv_nsec != 0) && nanosleep(&left, &rest) != 0) {
        if (errno != EINTR) {
            break;
        }
        left = rest;
    }
    errno = saved;
}
