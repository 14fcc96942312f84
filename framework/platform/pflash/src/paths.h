#ifndef PFLASH_PATHS_H
#define PFLASH_PATHS_H

/* The names a stored file is made of. */
struct pf_paths {
    char *visible;
    char *dir;
    char *slot[2];
};

/* 0, or -1 with errno EINVAL for an empty path or one naming a directory. */
int pf_paths_init(struct pf_paths *paths, const char *path);
void pf_paths_clear(struct pf_paths *paths);

#endif
