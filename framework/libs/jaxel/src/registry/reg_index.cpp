// Keeping the table index up to date with the file.
#include <fcntl.h>
#include <unistd.h>

#include "frame/frame.h"
#include "registry/registry.h"

namespace jx {
namespace {

bool same_file(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

bool unchanged(const struct stat &a, const struct stat &b) {
    return same_file(a, b) && a.st_size == b.st_size && a.st_mtim.tv_sec == b.st_mtim.tv_sec &&
           a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

// The file's bytes from `from` to its end, and its status when read; only a
// regular file is read, and a FIFO never blocks the open.
bool read_from(const char *path, off_t from, std::string &text, struct stat &status) {
    const UniqueFd fd(io().open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC, 0));
    if (fd.get() < 0 || ::fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_size < from) {
        return false;
    }
    text.resize(static_cast<std::size_t>(status.st_size - from));
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t got = ::pread(fd.get(), text.data() + done, text.size() - done,
                                    from + static_cast<off_t>(done));
        if (got <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(got);
    }
    return true;
}

}  // namespace

bool RegIndex::refresh(const char *path) noexcept {
    struct stat now {};
    if (valid_ && ::stat(path, &now) == 0) {
        if (unchanged(now, stamp_)) {
            return true;
        }
        if (plain_ && same_file(now, stamp_) && now.st_size > stamp_.st_size && read_tail(path)) {
            return settle();
        }
    }
    return load_whole(path) && settle();
}

bool RegIndex::read_tail(const char *path) noexcept {
    std::string tail;
    struct stat status {};
    if (!read_from(path, stamp_.st_size, tail, status) || !same_file(status, stamp_) ||
        !add_plain_text(tail)) {
        return false;
    }
    stamp_ = status;
    return true;
}

bool RegIndex::load_whole(const char *path) noexcept {
    clear();
    std::string text;
    struct stat status {};
    if (read_from(path, 0, text, status) && add_plain_text(text)) {
        stamp_ = status;
        valid_ = plain_ = true;
        return true;
    }
    clear();
    const bool stamped = ::stat(path, &status) == 0;
    const KeyFilePtr table(jx_load_key_file(path));
    if (!table) {
        return false;
    }
    add_key_file(table.get());
    stamp_ = status;
    valid_ = stamped;
    return true;
}

std::mutex &table_index_mutex() noexcept {
    static std::mutex mutex;
    return mutex;
}

RegIndex &table_index() noexcept {
    static RegIndex index;
    return index;
}

}  // namespace jx
