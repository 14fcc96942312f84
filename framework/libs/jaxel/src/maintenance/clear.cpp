#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/frame.h"
#include "maintenance/maintenance.h"
#include "maintenance/side_file_rule.h"
#include "safestr.h"

namespace jx {
namespace {

constexpr std::size_t kResolvedPathSize = 4096;

// The module file is named by the caller's module name, not by the item.
const char *resolve_module_file(const char *short_name, const char *module_name,
                                char (&unresolved)[kResolvedPathSize],
                                char (&resolved)[kResolvedPathSize]) noexcept {
    file_path_of(short_name, module_name, JX_TIER_PRAM, unresolved, sizeof unresolved);
    return ::realpath(unresolved, resolved) != nullptr ? resolved : unresolved;
}

// "r+" so that a file that does not exist is never created by a clear.
bool open_existing(const char *path, UniqueStream &stream) noexcept {
    stream.reset(io().fopen(path, "r+"));
    if (!stream) {
        const int e = errno;
        JX_LOG("g_fopen %s failed: %d(%s).", base_name(path), e, g_strerror(e));
        return false;
    }
    return true;
}

bool truncate_to_empty(FILE *stream, const char *path) noexcept {
    if (io().ftruncate(fileno(stream), 0) != 0) {
        JX_LOG("ftruncate(%s) failed.", base_name(path));
        return false;
    }
    (void)io().fseek(stream, 0, SEEK_SET);
    return true;
}

// Failures are only reported: the file is empty either way.
void sync_cleared_module_file(FILE *stream, const char *path) noexcept {
    (void)JX_FLUSH_AND_SYNC(stream, base_name(path),
                            {"jx_clear_module_file fflush", "jx_clear_module_file fsync"}, false);
}

int32_t refresh_side_file(const JxModuleItem &item, const char *path) noexcept {
    int32_t rc = JX_OK;
    switch (side_file_rule(item.protect_mode)) {
    case SideFileRule::kRefresh: rc = ram_check(path); break;
    case SideFileRule::kNone: break;
    case SideFileRule::kUnsupported: rc = JX_ERR_PROTECT_MODE; break;
    }
    if (rc != JX_OK) {
        JX_LOG("ram_check %s failed: %d.", base_name(path), rc);
    }
    return rc;
}

// The rolled-over copy in persistent RAM, then the durable package itself.
void remove_packages(const char *package_path) noexcept {
    char pram_package[kPathMax];
    if (snprintf_s(pram_package, sizeof pram_package, sizeof pram_package, "%s%s", kPramDir,
                   base_name(package_path)) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
    } else {
        (void)io().unlink(pram_package);
    }
    (void)io().unlink(package_path);
}

int32_t clear_registered(const JxModuleItem &item, const char *path) noexcept {
    UniqueStream stream;
    if (!open_existing(path, stream)) {
        return JX_ERR_OPEN;
    }
    const FileOperationLock lock(fileno(stream.get()));
    if (!truncate_to_empty(stream.get(), path)) {
        return JX_ERR_WRITE;
    }
    sync_cleared_module_file(stream.get(), path);
    const int32_t rc = refresh_side_file(item, path);
    if (rc != JX_OK) {
        return rc;
    }
    if (item.package_size != 0) {
        remove_packages(item.package_path);
    }
    return JX_OK;
}

int32_t clear_log(const JxItemCfg &descriptor) noexcept {
    UniqueStream stream;
    ResolvedPath resolved;
    if (!open_existing(resolved_or_given(descriptor.path, resolved), stream)) {
        return JX_ERR_OPEN;
    }
    const FileOperationLock lock(fileno(stream.get()));
    if (!truncate_to_empty(stream.get(), descriptor.path)) {
        return JX_ERR_WRITE;
    }
    if (JX_FLUSH_AND_SYNC(stream.get(), base_name(descriptor.path),
                          {"jx_clear_log_file fflush", nullptr}, true) != 0) {
        return JX_ERR_WRITE;
    }
    if (descriptor.package_size != 0 && descriptor.package_path != nullptr) {
        (void)io().unlink(descriptor.package_path);
    }
    return JX_OK;
}

}  // namespace

int32_t clear_module_file(const char *short_name, const char *module_name) noexcept {
    if (short_name == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "short_name");
    }
    if (module_name == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM2, "module_name");
    }
    if (const char *refused = refused_module_file(short_name, module_name)) {
        return JX_REFUSE(std::strcmp(refused, "short_name") == 0 ? JX_ERR_PARAM1 : JX_ERR_PARAM2,
                         refused);
    }
    if (g_jx_reg_list == nullptr) {
        JX_LOG("g_jx_reg_list invalid.");
        return JX_ERR_STATE;
    }
    const int32_t guard = reboot_guard(true);
    if (guard != JX_OK) {
        return guard;
    }
    const JxModuleItem *item = jx_find_module_item(short_name);
    if (item == nullptr) {
        JX_LOG("%s not register.", short_name);
        return JX_ERR_NOT_REGISTERED;
    }
    char unresolved[kResolvedPathSize] = {};
    char resolved[kResolvedPathSize];
    const char *path = resolve_module_file(short_name, module_name, unresolved, resolved);
    return leads_outside(unresolved) ? JX_ERR_OPEN : clear_registered(*item, path);
}

int32_t clear_file(const char *short_name) noexcept {
    if (short_name == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "short_name");
    }
    const int32_t rc = clear_module_file(short_name, module_name());
    if (rc != JX_OK) {
        JX_LOG("jx_clear_module_file(%s) failed: ret %d.", short_name, rc);
    }
    return rc;
}

int32_t clear_log_file(const JxItemCfg *descriptor) noexcept {
    if (descriptor == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "descriptor");
    }
    const int32_t guard = reboot_guard(true);
    if (guard != JX_OK) {
        return guard;
    }
    return clear_log(*descriptor);
}

}  // namespace jx
