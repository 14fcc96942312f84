#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "recovery/recovery.h"

namespace jx {
namespace {

bool exists(const char *path) noexcept { return ::access(path, F_OK) == 0; }

}  // namespace

int is_file_valid(const char *path, const char *checksum_path) noexcept {
    if (path == nullptr || checksum_path == nullptr || !exists(path) || !exists(checksum_path)) {
        return 0;
    }
    Content content;
    Content recorded;
    if (!read_whole_file_logged(path, content) ||
        !read_whole_file_logged(checksum_path, recorded, kChecksumFileSize)) {
        return 0;
    }
    char digest[kSha256HexSize];
    if (!sha256_hex(content.data.get(), content.len, digest)) {
        return 0;
    }
    return digest_prefix_equal(digest, recorded.data.get()) ? 1 : 0;
}

// A persistent-RAM file without a side file has simply not been recorded yet.
int is_ram_file_valid(const char *path) noexcept {
    if (!has_prefix(path, kPramDir) || !exists(path)) {
        return 0;
    }
    const Path side = side_file_of(path);
    if (!exists(side.c_str())) {
        return 1;
    }
    return is_file_valid(path, side.c_str());
}

}  // namespace jx
