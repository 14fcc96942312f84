#include "kel.h"

#include <errno.h>
#include <signal.h>
#include <spawn.h>
#include <stddef.h>
#include <sys/types.h>
#include <sys/wait.h>

extern char **environ;

/* The child starts from a clean signal state, whatever the calling thread
 * blocked or ignored for itself. */
static int init_attributes(posix_spawnattr_t *attr)
{
    sigset_t none;
    sigset_t all;
    int rc = posix_spawnattr_init(attr);
    if (rc != 0) {
        return rc;
    }
    if (sigemptyset(&none) != 0 || sigfillset(&all) != 0) {
        rc = EINVAL;
    }
    if (rc == 0) {
        rc = posix_spawnattr_setsigmask(attr, &none);
    }
    if (rc == 0) {
        rc = posix_spawnattr_setsigdefault(attr, &all);
    }
    if (rc == 0) {
        rc = posix_spawnattr_setflags(attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    if (rc != 0) {
        (void)posix_spawnattr_destroy(attr);
    }
    return rc;
}

static int wait_for(pid_t pid)
{
    int status = 0;
    pid_t rc;
    do {
        rc = waitpid(pid, &status, 0);
    } while (rc < 0 && errno == EINTR);
    if (rc < 0) {
        return -1;
    }
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    if (WIFSIGNALED(status)) {
        return 128 + WTERMSIG(status);
    }
    errno = ECHILD;
    return -1;
}

KEL_API int kel_system_s(const char *program, char *const argv[])
{
    posix_spawnattr_t attr;
    pid_t pid;
    int rc;

    if (program == NULL || argv == NULL) {
        errno = EINVAL;
        return -1;
    }
    rc = init_attributes(&attr);
    if (rc != 0) {
        errno = rc;
        return -1;
    }
    rc = posix_spawn(&pid, program, NULL, &attr, argv, environ);
    (void)posix_spawnattr_destroy(&attr);
    if (rc != 0) {
        errno = rc;
        return -1;
    }
    return wait_for(pid);
}
