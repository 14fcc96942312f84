#include "paths.h"

#include <errno.h>
#include <string.h>

#include <glib.h>

static int valid_base(const char *base)
{
    return base[0] != '\0' && strcmp(base, ".") != 0 && strcmp(base, "..") != 0;
}

int pf_paths_init(struct pf_paths *paths, const char *path)
{
    const char *slash;
    const char *base;
    int dir_len;
    int i;

    memset(paths, 0, sizeof *paths);
    if (path == NULL) {
        errno = EINVAL;
        return -1;
    }
    slash = strrchr(path, '/');
    base = slash != NULL ? slash + 1 : path;
    if (!valid_base(base)) {
        errno = EINVAL;
        return -1;
    }
    dir_len = (int)(base - path);
    paths->visible = g_strdup(path);
    if (slash == NULL) {
        paths->dir = g_strdup(".");
    } else {
        paths->dir = slash == path ? g_strdup("/") : g_strndup(path, (gsize)(slash - path));
    }
    for (i = 0; i < 2; i++) {
        paths->slot[i] = g_strdup_printf("%.*s.%s.pf%d", dir_len, path, base, i);
    }
    return 0;
}

void pf_paths_clear(struct pf_paths *paths)
{
    g_free(paths->visible);
    g_free(paths->dir);
    g_free(paths->slot[0]);
    g_free(paths->slot[1]);
    memset(paths, 0, sizeof *paths);
}
