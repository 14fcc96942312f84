#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

#include <glib.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "journal/journal.h"
#include "registry/registry.h"
#include "startup/startup.h"

namespace jx {
namespace {

constexpr uint32_t kTableModeCode = 68;
constexpr gid_t kTableGroup = 103;
constexpr std::size_t kPackageNameSize = 64;

// Opened once per process and never closed; close-on-exec keeps it out of the
// programs the library runs.
int32_t open_table_lock() noexcept {
    if (reg_table_fd() != -1) {
        return JX_OK;
    }
    const mode_t mode = create_privilege(kTableModeCode);
    // The table is the library's own: never a link, a second hard link, or a
    // FIFO or device whose node would take the table's mode and group; both
    // are set through the descriptor that was checked.
    set_reg_table_fd(
        io().open(kRegTablePath, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, mode));
    struct stat st {};
    if (reg_table_fd() >= 0 &&
        (::fstat(reg_table_fd(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_nlink > 1)) {
        (void)io().close(reg_table_fd());
        set_reg_table_fd(-1);
        errno = ENXIO;
    }
    if (reg_table_fd() < 0) {
        const int e = errno;
        set_reg_table_fd(-1);
        JX_LOG("open (%s) failed: errno %d(%s).", kRegTableName, e, g_strerror(e));
        return JX_ERR_OPEN;
    }
    (void)io().fchmod(reg_table_fd(), mode);
    if (io().fchown(reg_table_fd(), static_cast<uid_t>(-1), kTableGroup) != 0) {
        JX_LOG_ERRNO("chown on file", kRegTablePath);
    }
    return JX_OK;
}

// jx_init_package_item: the package of a size-limited file is a C file of its own.
void register_package(const JxItemCfg &element, const char *module_name) noexcept {
    const GPtr<char> name(static_cast<char *>(g_try_malloc0(kPackageNameSize)));
    if (!name) {
        JX_LOG("[%s]%d g_malloc0 failed\n", "jx_init_package_item", __LINE__);
        return;
    }
    g_snprintf(name.get(), kPackageNameSize, "%s.tar.gz", element.short_name);
    const JxItemCfg package = {name.get(), element.package_path, JX_PROTECT_C, 0,      nullptr,
                               nullptr,    element.privilege,    nullptr,      nullptr};
    const int32_t rc = jx_init_item(&package, module_name);
    if (rc != JX_OK) {
        JX_LOG("jx_init_item (%s %s) failed: ret %d.", module_name, name.get(), rc);
    }
}

int32_t register_elements(const JxItemCfg *cfg, int32_t count, const char *module_name) noexcept {
    for (int32_t i = 0; i < count; ++i) {
        const JxItemCfg &element = cfg[i];
        if (g_jx_reg_list != nullptr && jx_find_module_item(element.short_name) != nullptr) {
            continue;
        }
        const int32_t rc = jx_init_item(&element, module_name);
        if (rc != JX_OK) {
            JX_LOG("jx_init_item (%s %s) failed: ret %d.", module_name, element.short_name, rc);
            return rc;
        }
        if (element.package_size != 0) {
            register_package(element, module_name);
        }
    }
    return JX_OK;
}

// Both words are compared with their terminating zero, so a word followed by
// anything else counts as neither.
bool flag_holds(const Content &flag, const char (&word)[8]) noexcept {
    return flag.len + 1 >= sizeof word && std::memcmp(flag.data.get(), word, sizeof word) == 0;
}

int32_t act_on_load_flag() noexcept {
    Content flag;
    GErrorPtr error;
    if (!read_whole_file(kLoadCfgFlagPath, flag, error)) {
        return JX_OK;
    }
    if (flag_holds(flag, kFactoryWord)) {
        jx_recover_factory_S_cfg();
    } else if (flag_holds(flag, kClearedWord)) {
        return JX_OK;
    }
    return factory_load_req(0) == JX_OK ? JX_OK : JX_ERR_LOAD_REQ;
}

}  // namespace

int32_t init_cfg(const JxItemCfg *cfg, int32_t count, const char *module_name) noexcept {
    if (cfg == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "cfg");
    }
    if (count == 0) {
        return JX_REFUSE(JX_ERR_PARAM2, "count");
    }
    if (module_name == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM3, "module_name");
    }
    int32_t rc = reboot_guard(true);
    if (rc == JX_OK) {
        rc = check_config(cfg, count, module_name);
    }
    if (rc == JX_OK) {
        rc = open_table_lock();
    }
    if (rc != JX_OK) {
        return rc;
    }
    const TableLock table;
    // Start-up: calls that a crash cut short in any process are finished first.
    recover_all();
    rc = register_elements(cfg, count, module_name);
    return rc != JX_OK ? rc : act_on_load_flag();
}

int32_t init(const JxItemCfg *cfg, int32_t count) noexcept {
    const int32_t rc = init_cfg(cfg, count, module_name());
    if (rc != JX_OK) {
        JX_LOG("jx_init_cfg failed: ret %d.", rc);
    }
    return rc;
}

}  // namespace jx
