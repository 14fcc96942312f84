// Recovery of registered files: the engine that decides which copy is the
// truth, the rebuild of a working copy from its durable copy, the validity
// checks, backup recovery and the checked opening of key files. Uses the
// frame, the registry and integrity.
#pragma once

#include <cstdint>

#include <glib.h>

#include "frame/frame.h"
#include "registry/registry.h"

namespace jx {

// Dispatches by protect mode; 0 repaired or sound, JX_ERR_NOT_FOUND nothing to
// recover from, any other code a failure.
int32_t jx_recover_dst_file(const RegItem *item) noexcept;
int32_t jx_recover_dst_file_in_pram(const RegItem *item) noexcept;
int32_t jx_recover_dst_file_in_fs(const RegItem *item) noexcept;
int32_t jx_recover_by_crc(const char *main, const char *main_crc, const char *bak,
                          const char *bak_crc) noexcept;

// Rebuilds the working copy `name` at open time; `item` may be null.
int32_t jx_file_recover_by_name(const char *name, const RegItem *item) noexcept;
// Rebuilds the working copy at registration and applies the privileges.
int32_t jx_file_recover(const RegItem *item) noexcept;

// 1 when the checksum file's first 64 characters are the file's digest, else 0.
int is_file_valid(const char *path, const char *checksum_path) noexcept;
// 1 for a persistent-RAM file that matches its side file or has none, else 0.
int is_ram_file_valid(const char *path) noexcept;

// Records the current digest of every working copy of a mode's groups.
void ram_check_update(int mode) noexcept;
int32_t check_recovery_rambak(const char *path) noexcept;
int32_t recovery_flash_bak(const char *path) noexcept;

// A persistent-RAM key file, locked through fd, repaired when it fails its
// side file, then loaded; the lock is kept when hold is not 0.
GKeyFile *open_key_file(const char *path, int fd, int hold) noexcept;
int32_t close_key_file(GKeyFile *key, int fd, int hold) noexcept;

// The registration table, checked and loaded by open_key_file with the
// table's lock descriptor and hold 0; closed with the same values at the
// latest when the owner goes.
class RegTableKeyFile {
public:
    RegTableKeyFile() noexcept;
    ~RegTableKeyFile();
    RegTableKeyFile(const RegTableKeyFile &) = delete;
    RegTableKeyFile &operator=(const RegTableKeyFile &) = delete;

    GKeyFile *get() const noexcept { return key_; }
    explicit operator bool() const noexcept { return key_ != nullptr; }
    // The result of close_key_file; the table is closed afterwards either way.
    int32_t close() noexcept;

private:
    int fd_;
    GKeyFile *key_;
};

// Calls visit(src) for every group whose name begins with `letter` and that
// holds a non-empty "src", in file order, until visit returns false.
// False when the walk was stopped that way.
template <typename Visit>
bool for_each_group_src(GKeyFile *table, char letter, Visit &&visit) noexcept {
    const StrvPtr groups(g_key_file_get_groups(table, nullptr));
    for (gchar **group = groups.get(); group != nullptr && *group != nullptr; ++group) {
        if ((*group)[0] != letter) {
            continue;
        }
        const GPtr<gchar> src(g_key_file_get_string(table, *group, "src", nullptr));
        if (src && src.get()[0] != '\0' && !visit(src.get())) {
            return false;
        }
    }
    return true;
}

}  // namespace jx
