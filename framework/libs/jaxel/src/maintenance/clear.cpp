#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>

#include "frame/frame.h"
#include "journal/journal.h"
#include "maintenance/maintenance.h"
#include "maintenance/side_file_rule.h"

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

// Every package path a clear removes; a relative one cannot go into a record
// and is removed once the clear is done.
void remove_package(Transaction &transaction, const char *package_path) noexcept {
    if (package_path[0] == '/') {
        transaction.remove(package_path);
    }
}

void remove_relative_package(const char *package_path) noexcept {
    if (package_path[0] != '/') {
        (void)io().unlink(package_path);
    }
}

// Emptying, the side file of the empty content and the packages' removal make
// one change: a cut never leaves an empty file whose side file disagrees.
int32_t clear_registered(const JxModuleItem &item, const char *path) noexcept {
    UniqueStream stream;
    if (!open_existing(path, stream)) {
        return JX_ERR_OPEN;
    }
    const FileOperationLock lock(fileno(stream.get()));
    (void)recover_pending(path);
    const SideFileRule rule = side_file_rule(item.protect_mode);
    const Path side = side_file_of(path);
    char digest[kSha256HexSize];
    Transaction transaction;
    transaction.write(path, "", 0, false);
    if (rule == SideFileRule::kRefresh && sha256_hex("", 0, digest)) {
        transaction.write(side.c_str(), digest, kChecksumFileSize, true);
    }
    const Path pram_package = make_path({kPramDir, base_name(item.package_path)});
    const bool drops_packages = item.package_size != 0 && rule != SideFileRule::kUnsupported;
    if (drops_packages) {
        remove_package(transaction, pram_package.c_str());
        remove_package(transaction, item.package_path);
    }
    if (transaction.commit() != 0) {
        JX_LOG("ftruncate(%s) failed.", base_name(path));
        return JX_ERR_WRITE;
    }
    if (drops_packages) {
        remove_relative_package(item.package_path);
    }
    if (rule == SideFileRule::kRefresh) {
        (void)change_mode_of(side.c_str(), S_IRUSR | S_IWUSR);
    } else if (rule == SideFileRule::kUnsupported) {
        JX_LOG("ram_check %s failed: %d.", base_name(path), JX_ERR_PROTECT_MODE);
        return JX_ERR_PROTECT_MODE;
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
    (void)recover_pending(descriptor.path);
    const bool drops_package = descriptor.package_size != 0 && descriptor.package_path != nullptr;
    Transaction transaction;
    transaction.write(descriptor.path, "", 0, false);
    if (drops_package) {
        remove_package(transaction, descriptor.package_path);
    }
    if (transaction.commit() != 0) {
        JX_LOG("ftruncate(%s) failed.", base_name(descriptor.path));
        return JX_ERR_WRITE;
    }
    if (drops_package) {
        remove_relative_package(descriptor.package_path);
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
    return leads_outside(unresolved, path) ? JX_ERR_OPEN : clear_registered(*item, path);
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
