// The atomic floor of a protected append, with raw calls: what any write that
// survives power loss through a redo record must do at least. Compare with
// BM_ProtectedAppend (the library) and BM_ProtectedAppendFloor (the same
// without the redo record).
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include "append_floor.h"
#include "support/sandbox.h"

namespace {

constexpr char kAppended[] = "0123456789abcdef";
constexpr std::size_t kAppendedLen = sizeof kAppended - 1;
constexpr char kRecordDir[] = "/opt/ulx/pram/.floor-redo";
constexpr int kNew = O_WRONLY | O_CREAT | O_TRUNC;
// Header and a two-entry table (kind, sizes, digest and a 256-byte path each).
constexpr std::size_t kRecordHead = 80 + 2 * 320;

bool digest(const void *data, std::size_t len, unsigned char (&md)[32]) {
    unsigned int md_len = 0;
    return EVP_Digest(data, len, md, &md_len, EVP_sha256(), nullptr) == 1 && md_len == 32;
}

// Opens path (a directory with no parts), writes the parts in one call and syncs it.
bool write_synced(const char *path, int flags, const iovec *parts, int count) {
    const int fd = ::open(path, flags | O_CLOEXEC, 0600);
    const bool ok = fd >= 0 && (count == 0 || ::writev(fd, parts, count) > 0) && ::fsync(fd) == 0;
    return ::close(fd) == 0 && ok;
}

// The record as every call keeps it: looked for before anything else (a crash
// may have left one), then made in a fresh file that is locked and seen to be
// still linked, written with one call and synced with its directory, and
// unlinked once the targets hold the new state, durably: a record that came
// back after a cut would undo later writes that need no record (log lines).
bool record_locked(int fd, const char *record) {
    struct stat held {};
    struct stat named {};
    return fd >= 0 && ::flock(fd, LOCK_EX) == 0 && ::fstat(fd, &held) == 0 &&
           ::stat(record, &named) == 0 && held.st_ino == named.st_ino;
}

// Old content, two digests of the new, the record made durable, the side
// file, the in-place rewrite, and the record removed.
bool atomic_append_floor(int fd, const std::string &path, std::vector<char> &content) {
    const std::string record = std::string(kRecordDir) + "/floor";
    struct stat pending {};
    if (::stat(record.c_str(), &pending) == 0) {
        return false;
    }
    const off_t old_len = ::lseek(fd, 0, SEEK_END);
    content.resize(static_cast<std::size_t>(old_len) + kAppendedLen);
    if (::pread(fd, content.data(), static_cast<std::size_t>(old_len), 0) != old_len) {
        return false;
    }
    std::copy(kAppended, kAppended + kAppendedLen, content.begin() + old_len);
    unsigned char md[32], check[32];
    char side[65] = {};
    if (!digest(content.data(), content.size(), md) ||
        !digest(content.data(), content.size(), check) || !std::equal(md, md + 32, check)) {
        return false;
    }
    for (int i = 0; i < 32; ++i) {
        std::snprintf(side + 2 * i, 3, "%02x", md[i]);
    }
    char head[kRecordHead] = {};
    const iovec parts[] = {{head, sizeof head}, {content.data(), content.size()}, {side, 65}};
    const int record_fd = ::open(record.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const bool done =
        record_locked(record_fd, record.c_str()) && digest(head, sizeof head, md) &&
        ::writev(record_fd, parts, 3) > 0 && ::fsync(record_fd) == 0 &&
        write_synced(kRecordDir, O_RDONLY | O_DIRECTORY, parts, 0) &&
        write_synced((path + ".sha256").c_str(), kNew, &parts[2], 1) &&
        ::pwrite(fd, content.data(), content.size(), 0) == static_cast<ssize_t>(content.size()) &&
        ::ftruncate(fd, static_cast<off_t>(content.size())) == 0 && ::fsync(fd) == 0 &&
        ::unlink(record.c_str()) == 0 && write_synced(kRecordDir, O_RDONLY | O_DIRECTORY, parts, 0);
    return ::close(record_fd) == 0 && done;
}

void BM_ProtectedAppendAtomicFloor(benchmark::State &state) {
    (void)::mkdir(kRecordDir, 0700);
    std::vector<char> content;
    jx::bench::run_append_floor(state, "atomic", [&](int fd, const std::string &path) {
        return atomic_append_floor(fd, path, content);
    });
}
BENCHMARK(BM_ProtectedAppendAtomicFloor)->Arg(4096)->Arg(64 << 10)->Arg(1 << 20);

}  // namespace
