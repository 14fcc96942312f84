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

// The target is examined without following a link: a link planted there must
// not carry the owner and mode change to another file.
int32_t examine(const char *reference, const char *target, struct stat &ref,
                struct stat &tgt) noexcept {
    int rc = ::stat(reference, &ref);
    if (rc != 0) {
        return log_failure("stat", reference, rc);
    }
    rc = ::lstat(target, &tgt);
    if (rc != 0) {
        return log_failure("stat", target, rc);
    }
    if (!S_ISREG(ref.st_mode)) {
        return JX_ERR_PARAM1;
    }
    return S_ISREG(tgt.st_mode) ? JX_OK : JX_ERR_PARAM2;
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
    struct stat tgt;
    int rc = examine(reference, target, ref, tgt);
    if (rc != JX_OK) {
        return rc;
    }
    if (ref.st_uid != tgt.st_uid || ref.st_gid != tgt.st_gid) {
        rc = io().chown(target, ref.st_uid, ref.st_gid);
        if (rc != 0) {
            return log_failure("chown", target, rc);
        }
    }
    if (ref.st_mode != tgt.st_mode) {
        rc = io().chmod(target, ref.st_mode & 07777);
        if (rc != 0) {
            return log_failure("chmod", target, rc);
        }
    }
    if (g_str_has_suffix(target, kPackageSuffix)) {
        rc = io().chmod(target, kPackageMode);
        if (rc != 0) {
            return log_failure("chmod", target, rc);
        }
    }
    return JX_OK;
}

}  // namespace jx
