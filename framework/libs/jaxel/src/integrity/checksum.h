// Checksum files and the writes that keep a content and its checksum files in
// step. A checksum file is the 64 hex digits of the SHA-256 of the protected
// content followed by one zero byte; a file's side file is its path + ".sha256".
#pragma once

#include <cstdint>

#include "frame/frame.h"
#include "integrity/digest.h"
#include "jaxel.h"
#include "journal/journal.h"
#include "registry/registry.h"

namespace jx {

inline constexpr uint32_t kChecksumFileSize = kSha256HexSize;
// How log lines name the algorithm ("checksumType:%d").
inline constexpr int kChecksumType = G_CHECKSUM_SHA256;

// Directions of jx_recover_directly.
inline constexpr int kMainToBackup = 0;
inline constexpr int kBackupToMain = 1;

Path side_file_of(const char *path) noexcept;

// The first 64 characters of text are the digest; anything after them is ignored.
bool digest_prefix_equal(const char *digest, const char *text) noexcept;
// The text up to its first zero byte is exactly the digest; null text never is.
bool digest_exact_equal(const char *digest, const char *text) noexcept;

// Writes digest (with its zero byte) as the checksum file at path.
int32_t write_checksum_file(const char *path, const char *digest) noexcept;

// Writes the side file of path and makes it 0600; a failed write is logged.
int32_t write_side_file(const char *path, const char *digest) noexcept;

// Records the digest of content in the side file of path.
int32_t ram_check_sum(const char *path, const void *content, uint32_t len) noexcept;

// Records whatever path now holds in its side file; compares nothing.
int32_t ram_check(const char *path) noexcept;

// Writes content and the digest to both pairs of item (dst/crc, bak/bakcrc),
// the checksum file of the source pair first; stops at the first failure.
int32_t jx_recover_directly(const RegItem *item, const void *content, uint32_t len,
                            int direction) noexcept;

// Brings the durable pairs of item (crc/dst, then bakcrc/bak) to content with
// the given digest, each write durable before the next, skipping a pair that
// holds it already. `written` grows by the bytes written to each tier.
int32_t write_durable_copies(const RegItem &item, const void *content, uint32_t len,
                             const char *digest, uint64_t &written) noexcept;

// True when the pair at path (checksum file crc, empty for none) holds content
// with that digest.
bool pair_holds(const char *path, const char *crc, const char *digest) noexcept;

// Writes content to dest and its digest to dest_crc, only when the content's
// digest is the one expected (prefix comparison).
int32_t jx_crc_copy(const void *content, uint32_t len, const char *expected, const char *dest,
                    const char *dest_crc) noexcept;

// Writes content and its digest's side file as one atomic change; silent,
// JX_ERR_WRITE when the change did not happen whole.
// content may lie in the data space transaction reserved for two entries.
int32_t commit_with_side_file(const char *path, const void *content, uint32_t len,
                              const char *digest, bool may_create,
                              Transaction &&transaction = Transaction()) noexcept;

// Replaces the handle's file with content after checking it against expected
// (exact comparison), together with its side file, atomically and in place.
// The stream is left after the new content.
int32_t jx_rewrite_with_crc(JxFile *stream, const void *content, uint32_t len, const char *expected,
                            Transaction &&transaction = Transaction()) noexcept;

}  // namespace jx
