#include <unistd.h>

#include "frame/frame.h"
#include "integrity/checksum.h"
#include "integrity/integrity.h"

namespace jx {
namespace {

bool read_for_check(const char *path, Content &out) noexcept {
    GErrorPtr error;
    if (!read_whole_file(path, out, error)) {
        JX_LOG("g_file_get_contents(%s) failed: %s.", base_name(path), error->message);
        return false;
    }
    return true;
}

bool exists(const char *path) noexcept { return ::access(path, F_OK) == 0; }

}  // namespace

int32_t ram_check(const char *path) noexcept {
    Content content;
    if (path == nullptr || !read_for_check(path, content)) {
        return JX_ERR_READ;
    }
    const int32_t rc = __ram_check_sum(path, content.data.get(), content.len);
    if (rc != JX_OK) {
        JX_LOG("__ram_check_sum1(%s) failed: %d.", base_name(path), rc);
    }
    return rc;
}

}  // namespace jx

extern "C" int is_file_valid(const char *path, const char *checksum_path) noexcept {
    if (path == nullptr || checksum_path == nullptr || !jx::exists(path) ||
        !jx::exists(checksum_path)) {
        return 0;
    }
    jx::Content content;
    jx::Content recorded;
    if (!jx::read_for_check(path, content) || !jx::read_for_check(checksum_path, recorded)) {
        return 0;
    }
    char digest[jx::kSha256HexSize];
    if (!jx::sha256_hex(content.data.get(), content.len, digest)) {
        return 0;
    }
    return jx::digest_prefix_equal(digest, recorded.data.get()) ? 1 : 0;
}

// A persistent-RAM file without a side file has simply not been recorded yet.
extern "C" int is_ram_file_valid(const char *path) noexcept {
    if (!jx::has_prefix(path, jx::kPramDir) || !jx::exists(path)) {
        return 0;
    }
    const jx::Path side = jx::side_file_of(path);
    if (!jx::exists(side.c_str())) {
        return 1;
    }
    return is_file_valid(path, side.c_str());
}
