#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

#include <glib.h>

#include "frame/frame.h"
#include "integrity/integrity.h"

namespace jx {
namespace {

constexpr mode_t kPackageMode = 0440;
constexpr char kPackageSuffix[] = ".tar.gz";

// The raw result of the failed call (-1) is what the caller gets, not a
// library code: callers test for it.
int32_t log_failure(const char *call, const char *path, int rc) noexcept {
    const int e = errno;
    JX_LOG("%s(%s) failed: ret %d errno %d(%s)", call, base_name(path), rc, e, g_strerror(e));
    return rc;
}

int32_t examine(const char *reference, const char *target, struct stat &ref) noexcept {
    int rc = ::stat(reference, &ref);
    if (rc != 0) {
        return log_failure("stat", reference, rc);
    }
    struct stat tgt;
    rc = ::stat(target, &tgt);
    if (rc != 0) {
        return log_failure("stat", target, rc);
    }
    if (!S_ISREG(ref.st_mode)) {
        return JX_ERR_PARAM1;
    }
    return S_ISREG(tgt.st_mode) ? JX_OK : JX_ERR_PARAM2;
}

// The changes go through the target's descriptor, so they land on the file
// that was compared, never on one swapped in after the check. The logged
// calls keep the names "chown" and "chmod" that log watchers match.
int32_t copy_privilege(const struct stat &ref, const PrivilegeTarget &target,
                       const char *path) noexcept {
    const struct stat &tgt = target.status();
    if (ref.st_uid != tgt.st_uid || ref.st_gid != tgt.st_gid) {
        if (const int rc = target.change_owner(ref.st_uid, ref.st_gid); rc != 0) {
            return log_failure("chown", path, rc);
        }
    }
    if (ref.st_mode != tgt.st_mode) {
        if (const int rc = target.change_mode(ref.st_mode & 07777); rc != 0) {
            return log_failure("chmod", path, rc);
        }
    }
    if (g_str_has_suffix(path, kPackageSuffix)) {
        if (const int rc = target.change_mode(kPackageMode); rc != 0) {
            return log_failure("chmod", path, rc);
        }
    }
    return JX_OK;
}

}  // namespace

int32_t sync_privilege(const char *reference, const char *target) noexcept {
    if (reference == nullptr || reference[0] == '\0') {
        return JX_ERR_PARAM1;
    }
    if (target == nullptr || target[0] == '\0' || leads_outside(target)) {
        return JX_ERR_PARAM2;
    }
    if (::access(reference, F_OK) != 0 || ::access(target, F_OK) != 0) {
        return JX_OK;
    }
    struct stat ref;
    const int32_t rc = examine(reference, target, ref);
    if (rc != JX_OK) {
        return rc;
    }
    const PrivilegeTarget opened(target);
    if (!opened.is_open()) {
        return opened.refused() ? JX_ERR_PARAM2 : log_failure("open", target, -1);
    }
    return copy_privilege(ref, opened, target);
}

}  // namespace jx
