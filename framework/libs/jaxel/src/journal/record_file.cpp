#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <linux/magic.h>

#include "journal/record.h"

namespace jx::redo {
namespace {

constexpr int kRecordFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW;

// The last directory resolved by this thread: resolving walks every component
// of the path, while checking that the directory is still the same one takes a
// single stat, and within one call (the pending check, then the commit) not
// even that.
struct ResolvedDir {
    Path spelled;
    Path resolved;
    dev_t dev = 0;
    ino_t ino = 0;
    uint64_t hold = 0;
};

bool resolve_dir(const char *dir, Path &out) noexcept {
    thread_local ResolvedDir last;
    const bool same_spelling = std::strcmp(last.spelled.c_str(), dir) == 0;
    if (same_spelling && last.hold != 0 && last.hold == library_hold()) {
        out = last.resolved;
        return true;
    }
    struct stat st;
    if (::stat(dir, &st) != 0) {
        return false;
    }
    if (same_spelling && last.dev == st.st_dev && last.ino == st.st_ino) {
        last.hold = library_hold();
        out = last.resolved;
        return true;
    }
    char resolved[PATH_MAX];
    if (::realpath(dir, resolved) == nullptr) {
        return false;
    }
    last = {make_path({dir}), make_path({resolved}), st.st_dev, st.st_ino, library_hold()};
    out = last.resolved;
    return true;
}

// Two spellings of one file must share one record.
Path canonical(const char *target) noexcept {
    const Path dir = parent_of(target);
    Path resolved;
    if (!resolve_dir(dir.c_str(), resolved)) {
        return make_path({target});
    }
    const char *separator = g_str_has_suffix(resolved.c_str(), "/") ? "" : "/";
    return make_path({resolved.c_str(), separator, base_name(target)});
}

UniqueFd open_record(const char *record, bool create) noexcept {
    UniqueFd fd(io().open(record, kRecordFlags | (create ? O_CREAT : 0), S_IRUSR | S_IWUSR));
    if (!fd && create && errno == ENOENT && make_record_dir() == 0) {
        fd.reset(io().open(record, kRecordFlags | O_CREAT, S_IRUSR | S_IWUSR));
    }
    return fd;
}

bool still_linked(int fd, const char *record, struct stat &held) noexcept {
    struct stat named;
    return fstat(fd, &held) == 0 && ::stat(record, &named) == 0 && held.st_ino == named.st_ino &&
           held.st_dev == named.st_dev;
}

}  // namespace

// A new directory entry is only durable once its parent is synced.
int make_record_dir() noexcept {
    if (io().mkdir(kRecordDir, S_IRWXU) != 0) {
        return errno == EEXIST ? 0 : -1;
    }
    return sync_parent_directory(make_path({kPramDir, "x"}).c_str());
}

namespace {

bool holds_no_entry(const char *dir) noexcept {
    DIR *stream = opendir(dir);
    if (stream == nullptr) {
        return false;
    }
    bool empty = true;
    while (const dirent *entry = readdir(stream)) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            empty = false;
            break;
        }
    }
    closedir(stream);
    return empty;
}

// On tmpfs a directory's size counts its entries, so one stat tells; elsewhere
// the directory is read, but only when that can let the census vouch again.
bool record_dir_empty() noexcept {
    static const bool sizes_count_entries = [] {
        struct statfs fs;
        return ::statfs(kPramDir, &fs) == 0 && fs.f_type == TMPFS_MAGIC;
    }();
    constexpr off_t kEmptyTmpfsDirSize = 40;  // "." and "..", 20 bytes each
    struct stat st;
    if (::stat(kRecordDir, &st) != 0) {
        return errno == ENOENT;
    }
    if (!S_ISDIR(st.st_mode)) {
        return false;
    }
    if (sizes_count_entries) {
        return st.st_size == kEmptyTmpfsDirSize;
    }
    return !census_busy() && holds_no_entry(kRecordDir);
}

}  // namespace

bool no_record_at_all() noexcept {
    if (census_says_none()) {
        return true;
    }
    const uint32_t marks = census_marks();
    if (!record_dir_empty()) {
        return false;
    }
    census_seen_empty(marks);
    return true;
}

Path record_path(const char *target) noexcept {
    const Path name = canonical(target);
    uint8_t digest[kDigestSize];
    char hex[2 * kDigestSize + 1] = {};
    if (sha256(name.c_str(), std::strlen(name.c_str()), digest)) {
        to_hex(digest, kDigestSize, hex);
    }
    return make_path({kRecordDir, hex});
}

UniqueFd open_locked(const char *record, bool create, bool wait, off_t *size) noexcept {
    for (;;) {
        UniqueFd fd = open_record(record, create);
        if (!fd) {
            return fd;
        }
        if (io().flock(fd.get(), LOCK_EX | (wait ? 0 : LOCK_NB)) != 0) {
            return UniqueFd();
        }
        struct stat held;
        if (still_linked(fd.get(), record, held)) {
            if (size != nullptr) {
                *size = held.st_size;
            }
            return fd;
        }
    }
}

int remove_record(const char *record) noexcept {
    if (io().unlink(record) != 0 && errno != ENOENT) {
        return -1;
    }
    return sync_parent_directory(record);
}

}  // namespace jx::redo
