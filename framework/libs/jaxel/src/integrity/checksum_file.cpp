#include <cstring>
#include <sys/stat.h>

#include "frame/frame.h"
#include "integrity/integrity.h"

namespace jx {

Path side_file_of(const char *path) noexcept { return make_path({path, kChecksumSuffix}); }

bool digest_prefix_equal(const char *digest, const char *text) noexcept {
    return text != nullptr && std::strncmp(digest, text, kSha256HexLen) == 0;
}

bool digest_exact_equal(const char *digest, const char *text) noexcept {
    return text != nullptr && g_strcmp0(digest, text) == 0;
}

int32_t write_checksum_file(const char *path, const char *digest) noexcept {
    return set_content(path, digest, kChecksumFileSize);
}

int32_t write_side_file(const char *path, const char *digest) noexcept {
    const Path side = side_file_of(path);
    const int32_t rc = write_checksum_file(side.c_str(), digest);
    if (rc != JX_OK) {
        JX_LOG("jx_set_content(sha256) failed: ret=%d.", rc);
        return rc;
    }
    (void)change_mode_of(side.c_str(), S_IRUSR | S_IWUSR);
    return JX_OK;
}

int32_t ram_check_sum(const char *path, const void *content, uint32_t len) noexcept {
    char digest[kSha256HexSize];
    if (!sha256_hex(content, len, digest)) {
        JX_LOG("g_compute_checksum_for_data(sha256) failed.");
        return JX_ERR_CHECKSUM;
    }
    return write_side_file(path, digest);
}

int32_t ram_check(const char *path) noexcept {
    Content content;
    if (path == nullptr || !read_whole_file_logged(path, content)) {
        return JX_ERR_READ;
    }
    const int32_t rc = ram_check_sum(path, content.data.get(), content.len);
    if (rc != JX_OK) {
        JX_LOG("__ram_check_sum1(%s) failed: %d.", base_name(path), rc);
    }
    return rc;
}

}  // namespace jx
