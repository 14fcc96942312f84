#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include "journal/record.h"

namespace jx::redo {
namespace {

bool read_record(int fd, GPtr<uint8_t> &buf, std::size_t &len) noexcept {
    struct stat st;
    if (fstat(fd, &st) != 0) {
        return false;
    }
    len = static_cast<std::size_t>(st.st_size);
    buf.reset(static_cast<uint8_t *>(g_try_malloc(len == 0 ? 1 : len)));
    if (!buf) {
        return false;
    }
    std::size_t done = 0;
    while (done < len) {
        const ssize_t n = pread(fd, buf.get() + done, len - done, static_cast<off_t>(done));
        if (n <= 0) {
            return false;
        }
        done += static_cast<std::size_t>(n);
    }
    return true;
}

}  // namespace

// A record that does not validate was never committed, so its targets were
// never touched: dropping it is the rollback.
int finish(int fd, const char *record) noexcept {
    GPtr<uint8_t> buf;
    std::size_t len = 0;
    if (!read_record(fd, buf, len)) {
        return -1;
    }
    View view;
    if (decode(buf.get(), len, view)) {
        if (apply(view) != 0 && worth_retrying(errno)) {
            return -1;
        }
    } else if (len != 0) {
        JX_LOG("redo record %s dropped: incomplete.", base_name(record));
    }
    return remove_record(record);
}

}  // namespace jx::redo

namespace jx {

int recover_pending(const char *path) noexcept {
    if (path == nullptr || redo::no_record_at_all()) {
        return 0;
    }
    const Path record = redo::record_path(path);
    struct stat st;
    if (::stat(record.c_str(), &st) != 0) {
        return 0;
    }
    const UniqueFd fd = redo::open_locked(record.c_str(), false, true);
    if (!fd) {
        return errno == ENOENT ? 0 : -1;
    }
    return redo::finish(fd.get(), record.c_str());
}

// The directory is made here when missing, so that every later call finds
// it: a missing name costs more to look up than one that is there. A scan that
// leaves no entry behind lets the census vouch again.
void recover_all() noexcept {
    const uint32_t marks = redo::census_marks();
    DIR *dir = opendir(redo::kRecordDir);
    if (dir == nullptr) {
        if (errno == ENOENT) {
            redo::census_seen_empty(marks);
        }
        (void)redo::make_record_dir();
        return;
    }
    bool left = false;
    while (const dirent *entry = readdir(dir)) {
        const char *name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
            continue;
        }
        const Path path = make_path({redo::kRecordDir, name});
        const UniqueFd fd = redo::open_locked(path.c_str(), false, false);
        if (fd && std::strchr(name, '.') != nullptr) {
            left |= io().unlink(path.c_str()) != 0;  // a staging its crashed call left
        } else {
            left |= !fd || redo::finish(fd.get(), path.c_str()) != 0;
        }
    }
    closedir(dir);
    if (!left) {
        redo::census_seen_empty(marks);
    }
}

std::string redo_record_path(const char *target) { return redo::record_path(target).c_str(); }

}  // namespace jx
