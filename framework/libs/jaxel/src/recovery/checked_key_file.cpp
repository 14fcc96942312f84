#include "frame/frame.h"
#include "journal/journal.h"
#include "recovery/recovery.h"

namespace jx {
namespace {

// Runs under the caller's lock: a working copy that fails its side file is
// rebuilt from its durable copy before it is parsed.
GKeyFile *load_checked(const char *path, const RegItem *record) noexcept {
    if (is_ram_file_valid(path) != 1) {
        const int32_t rc = jx_file_recover_by_name(path, record);
        if (rc != JX_OK) {
            JX_LOG("jx_file_recover_by_name(%s) failed: %d.", base_name(path), rc);
            return nullptr;
        }
    }
    return jx_load_key_file(path);
}

}  // namespace

GKeyFile *open_key_file(const char *path, int fd, int hold) noexcept {
    if (path == nullptr) {
        return (void)JX_REFUSE(JX_ERR_PARAM1, "path"), nullptr;
    }
    if (!has_prefix(path, kPramDir) || climbs_out(path, kPramDir) || fd == -1) {
        return nullptr;
    }
    // The lookup takes the table lock itself, so it must come before fd is
    // locked: fd may be the table's own descriptor.
    const GPtr<RegItem> record(get_reg_inter_info(path));
    if (!lock_fd(fd)) {
        return nullptr;
    }
    (void)recover_pending(path);
    GKeyFile *key = load_checked(path, record.get());
    if (hold == 0 || key == nullptr) {
        unlock_fd(fd);
    }
    return key;
}

int32_t close_key_file(GKeyFile *key, int fd, int hold) noexcept {
    if (key == nullptr) {
        return JX_ERR_PARAM1;
    }
    g_key_file_free(key);
    if (hold != 0) {
        unlock_fd(fd);
    }
    return JX_OK;
}

RegTableKeyFile::RegTableKeyFile() noexcept
    : fd_(reg_table_fd()), key_(open_key_file(kRegTablePath, fd_, 0)) {}

RegTableKeyFile::~RegTableKeyFile() { (void)close(); }

int32_t RegTableKeyFile::close() noexcept {
    GKeyFile *key = key_;
    key_ = nullptr;
    return close_key_file(key, fd_, 0);
}

}  // namespace jx
