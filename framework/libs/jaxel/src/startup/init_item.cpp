#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"
#include "journal/journal.h"
#include "recovery/recovery.h"
#include "registry/registry.h"
#include "safestr.h"
#include "startup/startup.h"

namespace jx {
namespace {

constexpr std::size_t kResolvedPathSize = 4096;

struct TierSuffix {
    uint32_t tier;
    const char *suffix;
};

// Side files and backups that a C or F file must not inherit from an earlier
// registration in a protected mode.
constexpr TierSuffix kStaleCompanions[] = {
    {JX_TIER_PRAM, ".sha256"},
    {JX_TIER_SAVE, ".sha256"},
    {JX_TIER_SAVE, ".bak"},
    {JX_TIER_SAVE, ".bak.sha256"},
};

Path tier_path(const JxItemCfg &element, const char *module_name, uint32_t tier) noexcept {
    Path path;
    file_path_of(element.short_name, module_name, tier, path.text, sizeof path.text);
    return path;
}

void remove_stale_companions(const JxItemCfg &element, const char *module_name) noexcept {
    for (const TierSuffix &stale : kStaleCompanions) {
        const Path base = tier_path(element, module_name, stale.tier);
        const Path path = make_path({base.c_str(), stale.suffix});
        if (::access(path.c_str(), F_OK) == 0) {
            (void)io().unlink(path.c_str());
        }
    }
}

void set_field(char (&field)[kPathMax], const char *value) noexcept {
    g_strlcpy(field, value, sizeof field);
}

// The module's own durable path when it gave one (resolved where it can be),
// otherwise the save-area path. A resolved path too long for the record is
// refused, never cut.
bool set_chosen_or_default(char (&field)[kPathMax], const char *chosen,
                           const Path &fallback) noexcept {
    if (chosen == nullptr || chosen[0] == '\0') {
        set_field(field, fallback.c_str());
        return true;
    }
    char resolved[kResolvedPathSize];
    const char *taken = ::realpath(chosen, resolved) != nullptr ? resolved : chosen;
    if (!fits(sizeof field, {taken}) || !valid_table_text(taken)) {
        JX_LOG("%s refused: its resolved path does not fit the table.", base_name(chosen));
        return false;
    }
    set_field(field, taken);
    return true;
}

// _create_reg_item_info: the paths of the file's copies by protect mode.
int32_t create_reg_item_info(const JxItemCfg &element, const char *module_name,
                             RegItem &record) noexcept {
    const Path t0 = tier_path(element, module_name, JX_TIER_PRAM);
    const Path t1 = tier_path(element, module_name, JX_TIER_SAVE);
    switch (element.protect_mode) {
    case JX_PROTECT_R:
        set_field(record.src, t0.c_str());
        set_field(record.dst, make_path({t0.c_str(), kBackupSuffix}).c_str());
        set_field(record.crc, make_path({t0.c_str(), kBackupSuffix, kChecksumSuffix}).c_str());
        break;
    case JX_PROTECT_C:
        set_field(record.src, t0.c_str());
        if (!set_chosen_or_default(record.dst, element.path, t1)) {
            return JX_ERR_PARAM1;
        }
        break;
    case JX_PROTECT_E:
    case JX_PROTECT_S:
        set_field(record.src, t0.c_str());
        if (!set_chosen_or_default(record.dst, element.path, t1)) {
            return JX_ERR_PARAM1;
        }
        set_field(record.bak, make_path({t1.c_str(), kBackupSuffix}).c_str());
        set_field(record.crc, make_path({t1.c_str(), kChecksumSuffix}).c_str());
        set_field(record.bakcrc, make_path({t1.c_str(), kBackupSuffix, kChecksumSuffix}).c_str());
        break;
    case JX_PROTECT_P:
        set_field(record.src, t0.c_str());
        set_field(record.dst, has_prefix(element.path, kPflashDir)
                                  ? element.path
                                  : tier_path(element, module_name, JX_TIER_PFLASH).c_str());
        break;
    default: {
        const int rc = strncpy_s(record.src, sizeof record.src, element.short_name,
                                 std::strlen(element.short_name));
        if (rc != 0) {
            JX_LOG("[%s]%d strncpy_s failed ret:%d\n", "_create_reg_item_info", __LINE__, rc);
            return rc;
        }
        break;
    }
    }
    record.protect_mode = element.protect_mode;
    record.privilege = element.privilege;
    record.callback_obj = element.callback_obj;
    record.callback_method = element.callback_method;
    return JX_OK;
}

// Whether the table's last line was cut: the new group then needs a line break
// first, so that it never continues that line.
bool ends_mid_line(const struct stat &st) noexcept {
    if (st.st_size == 0) {
        return false;
    }
    const UniqueFd fd(::open(kRegTablePath, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    char last = '\n';
    return fd.get() >= 0 && ::pread(fd.get(), &last, 1, st.st_size - 1) == 1 && last != '\n';
}

// Appends under the table lock that start-up holds, through a redo record: a
// group lost or torn by a power cut would leave a working file that nothing
// protects, or a table that no longer parses.
int32_t append_group(const RegItem &record, int number) noexcept {
    struct stat st;
    const bool missing = ::stat(kRegTablePath, &st) != 0;
    if (missing && errno != ENOENT) {
        JX_LOG("g_fopen %s failed.", kRegTableName);
        return JX_ERR_OPEN;
    }
    const GPtr<gchar> group(reg_group_text(record, number));
    const GPtr<gchar> text(
        g_strconcat(!missing && ends_mid_line(st) ? "\n" : "", group.get(), nullptr));
    const std::size_t length = std::strlen(text.get());
    const uint64_t end = missing ? 0 : static_cast<uint64_t>(st.st_size);
    Transaction transaction;
    if (missing) {
        transaction.write(kRegTablePath, text.get(), length, true);
    } else {
        transaction.write_at(kRegTablePath, end, text.get(), length, end + length);
    }
    if (transaction.commit() != 0) {
        JX_LOG_ERRNO_SPACED("sync", kRegTableName);
        return JX_ERR_WRITE;
    }
    return JX_OK;
}

// jx_fsync_register_inter: make sure the table lists the file. The file is
// listed already when a group names the same working file or the same durable
// copy.
int32_t fsync_register_inter(const RegItem &record) noexcept {
    bool listed = false;
    uint64_t number = 0;
    const bool loaded = with_table_index([&](const RegIndex &index) {
        listed = index.lists(record.src, record.dst);
        number = index.next_number(group_letter(record.protect_mode));
    });
    int32_t rc = JX_ERR_OPEN;
    if (!loaded) {
        JX_LOG("open_key_file(%s) failed.", kRegTableName);
    } else if (listed) {
        return JX_OK;
    } else if (number > INT32_MAX) {
        JX_LOG("%s: no group number left.", kRegTableName);
        rc = JX_ERR_WRITE;
    } else {
        rc = append_group(record, static_cast<int>(number));
    }
    if (rc != JX_OK) {
        JX_LOG("jx_fsync_register_inter failed: ret %d.", rc);
    }
    return rc;
}

void add_module_item(const JxItemCfg &element, const char *module_name) noexcept {
    auto *item = g_new0(JxModuleItem, 1);
    g_strlcpy(item->short_name, element.short_name, sizeof item->short_name);
    item->protect_mode = element.protect_mode;
    item->package_size = element.package_size;
    item->callback = element.callback;
    item->privilege = element.privilege;
    if (element.package_path != nullptr) {
        g_strlcpy(item->package_path, element.package_path, sizeof item->package_path);
    } else {
        const Path t1 = tier_path(element, module_name, JX_TIER_SAVE);
        g_snprintf(item->package_path, sizeof item->package_path, "%s.tar.gz", t1.c_str());
    }
    jx_append_module_item(item);
}

// A missing working copy is rebuilt without locks; an existing one under the
// library mutex and a lock on a read descriptor, which keeps other processes'
// handles out while it is repaired.
int32_t repair_working_copy(const JxItemCfg &element, const RegItem &record) noexcept {
    int32_t rc = JX_OK;
    (void)recover_pending(record.src);
    if (::access(record.src, F_OK) != 0) {
        rc = jx_file_recover(&record);
    } else {
        const UniqueStream stream(io().fopen(record.src, "r"));
        if (!stream) {
            const int e = errno;
            JX_LOG("g_fopen %s failed: %d(%s).", base_name(record.src), e, g_strerror(e));
            return JX_ERR_OPEN;
        }
        const FileOperationLock lock(fileno(stream.get()));
        rc = jx_file_recover(&record);
    }
    if (rc != JX_OK) {
        JX_LOG("jx_file_recover(%s) failed: ret %d.", element.short_name, rc);
    }
    return rc;
}

}  // namespace

int32_t jx_init_item(const JxItemCfg *element, const char *module_name) noexcept {
    if (element == nullptr || element->short_name == nullptr || module_name == nullptr) {
        return JX_ERR_PARAM1;
    }
    RegItem record{};
    if (element->protect_mode > JX_PROTECT_F) {
        return JX_ERR_PROTECT_MODE;
    }
    // Paths are derived before anything is removed: a refused path removes nothing.
    int32_t rc = create_reg_item_info(*element, module_name, record);
    if (rc == JX_OK &&
        (element->protect_mode == JX_PROTECT_C || element->protect_mode == JX_PROTECT_F)) {
        remove_stale_companions(*element, module_name);
    }
    if (rc == JX_OK) {
        rc = fsync_register_inter(record);
    }
    if (rc != JX_OK) {
        return rc;
    }
    add_module_item(*element, module_name);
    return repair_working_copy(*element, record);
}

}  // namespace jx
