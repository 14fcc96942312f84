// The atomic floor of a protected append, with raw calls: what any write that
// survives power loss must do at least. Compare with BM_ProtectedAppend (the
// library) and BM_ProtectedAppendFloor (the same without the redo record).
#include <fcntl.h>
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

// Old content, two digests of the new, the record made durable (one write,
// its fsync, its directory's fsync), the side file, the in-place rewrite, and
// the record removed.
bool atomic_append_floor(int fd, const std::string &path, std::vector<char> &content) {
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
    const std::string record = std::string(kRecordDir) + "/floor";
    const iovec parts[] = {{head, sizeof head}, {content.data(), content.size()}, {side, 65}};
    return digest(head, sizeof head, md) && write_synced(record.c_str(), kNew, parts, 3) &&
           write_synced(kRecordDir, O_RDONLY | O_DIRECTORY, parts, 0) &&
           write_synced((path + ".sha256").c_str(), kNew, &parts[2], 1) &&
           ::pwrite(fd, content.data(), content.size(), 0) ==
               static_cast<ssize_t>(content.size()) &&
           ::ftruncate(fd, static_cast<off_t>(content.size())) == 0 && ::fsync(fd) == 0 &&
           ::unlink(record.c_str()) == 0;
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
