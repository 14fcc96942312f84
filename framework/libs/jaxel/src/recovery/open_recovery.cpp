#include <initializer_list>
#include <sys/stat.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "recovery/recovery.h"

namespace jx {
namespace {

// The open and the registration report a failed copy in their own words.
enum class Entry { kOpen, kRegistration };

void log_copy_failure(Entry entry, int32_t rc, const RegItem *item) noexcept {
    if (entry == Entry::kOpen) {
        JX_LOG("jx_file_copy failed: ret %d. flash_file %s, ram_file %s", rc, base_name(item->dst),
               base_name(item->src));
    } else {
        JX_LOG("jx_file_copy failed: ret %d. flash_file = %s, ram_file = %s", rc,
               base_name(item->dst), base_name(item->src));
    }
}

// C working copies carry no side file.
int32_t record_ram_digest(const RegItem *item) noexcept {
    int32_t rc = JX_ERR_PROTECT_MODE;
    switch (item->protect_mode) {
    case JX_PROTECT_C: return JX_OK;
    case JX_PROTECT_R:
    case JX_PROTECT_E:
    case JX_PROTECT_S:
    case JX_PROTECT_P: rc = ram_check(item->src); break;
    default: break;
    }
    if (rc != JX_OK) {
        JX_LOG("ram_check(%s) failed: ret %d.", base_name(item->src), rc);
    }
    return rc;
}

// Replaces the working copy with the durable copy, which the engine has just
// found sound, together with its owner, group and mode.
int32_t rebuild_ram_copy(const RegItem *item, Entry entry) noexcept {
    int32_t rc = jx_file_copy(item->dst, item->src);
    if (rc != JX_OK) {
        log_copy_failure(entry, rc, item);
        return rc;
    }
    rc = sync_privilege(item->dst, item->src);
    if (rc != JX_OK) {
        JX_LOG("sync privilege failed, file:%s", base_name(item->dst));
        return rc;
    }
    return record_ram_digest(item);
}

// Failures here are reported but do not fail the registration.
void share_privilege(const char *src, const char *target) noexcept {
    if (sync_privilege(src, target) != JX_OK) {
        JX_LOG("sync privilege failed, file:%s", base_name(src));
    }
}

void apply_registered_privilege(const RegItem *item) noexcept {
    set_privilege(item->src, item->privilege);
    const Path side = side_file_of(item->src);
    share_privilege(item->src, side.c_str());
    if (is_regular_file(side.c_str())) {
        (void)change_mode_of(side.c_str(), S_IRUSR | S_IWUSR);
    }
    for (const char *path : {item->dst, item->bak, item->crc, item->bakcrc}) {
        if (path[0] != '\0') {
            share_privilege(item->src, path);
        }
    }
}

}  // namespace

int32_t jx_file_recover_by_name(const char *name, const RegItem *item) noexcept {
    if (item == nullptr) {
        JX_LOG("(%s) not found in fsync_reg.ini.", base_name(name));
        return JX_ERR_NOT_REGISTERED;
    }
    const int32_t rc = jx_recover_dst_file(item);
    if (rc != JX_OK) {
        JX_LOG("jx_recover_dst_file(%s) failed: ret %d.", base_name(name), rc);
        return rc;
    }
    return rebuild_ram_copy(item, Entry::kOpen);
}

int32_t jx_file_recover(const RegItem *item) noexcept {
    if (item == nullptr) {
        return JX_ERR_PARAM1;
    }
    if (is_ram_file_valid(item->src) != 1) {
        int32_t rc = jx_recover_dst_file(item);
        // Nothing to recover from: the item starts without a working copy.
        if (rc == JX_ERR_NOT_FOUND) {
            return JX_OK;
        }
        if (rc != JX_OK) {
            JX_LOG("jx_recover_dst_file failed: ret %d.", rc);
            return rc;
        }
        rc = rebuild_ram_copy(item, Entry::kRegistration);
        if (rc != JX_OK) {
            return rc;
        }
    }
    apply_registered_privilege(item);
    return JX_OK;
}

}  // namespace jx
