#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <set>
#include <string>

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include "append_floor.h"
#include "jaxel.h"
#include "support/builders.h"
#include "support/sandbox.h"

namespace {

constexpr char kRecord[] = "0123456789abcdef";
constexpr std::size_t kRecordLen = sizeof kRecord - 1;

// A protected write rebuilds, digests twice and rewrites the whole file, so its
// cost follows the file size, not the size of the write.
void BM_ProtectedAppend(benchmark::State &state) {
    const std::string name = "data" + std::to_string(state.range(0));
    const std::string existing(static_cast<std::size_t>(state.range(0)), 'd');
    static std::set<std::string> registered;
    if (registered.insert(name).second) {
        jx::test::write_file(jx::test::tier_path("bench", name.c_str()), existing);
        jx::test::register_items("bench", {jx::test::item_cfg(name.c_str(), JX_PROTECT_E)});
    }
    JxFile *file = jx_fopen(name.c_str(), "r+");
    if (file == nullptr) {
        state.SkipWithError("cannot open the file");
        return;
    }
    for (auto _ : state) {
        benchmark::DoNotOptimize(jx_fwrite(kRecord, 1, kRecordLen, file));
        state.PauseTiming();
        jx_delete(kRecordLen, static_cast<uint32_t>(existing.size()), file);
        state.ResumeTiming();
    }
    jx_fclose(file);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_ProtectedAppend)->Arg(4096)->Arg(64 << 10)->Arg(1 << 20);

bool sha256_hex(const char *data, std::size_t len, char (&hex)[65]) {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int md_len = 0;
    if (EVP_Digest(data, len, md, &md_len, EVP_sha256(), nullptr) != 1) {
        return false;
    }
    for (unsigned int i = 0; i < md_len; ++i) {
        hex[2 * i] = "0123456789abcdef"[md[i] >> 4];
        hex[2 * i + 1] = "0123456789abcdef"[md[i] & 0x0f];
    }
    hex[64] = '\0';
    return true;
}

bool write_side_file(const std::string &path, const char (&hex)[65]) {
    const int fd = ::open((path + ".sha256").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const bool ok = fd >= 0 && ::write(fd, hex, sizeof hex) == sizeof hex && ::fsync(fd) == 0;
    return ::close(fd) == 0 && ok;
}

// The floor of a protected append, done with raw calls: read the file whole,
// digest the new content twice (computed, then checked), write its side file
// durably, rewrite the file in place and sync it.
bool protected_append_floor(int fd, const std::string &path) {
    const off_t old_len = ::lseek(fd, 0, SEEK_END);
    const std::size_t len = static_cast<std::size_t>(old_len) + kRecordLen;
    const std::unique_ptr<char[]> content(new char[len]);
    if (old_len < 0 ||
        ::pread(fd, content.get(), static_cast<std::size_t>(old_len), 0) != old_len) {
        return false;
    }
    std::memcpy(content.get() + old_len, kRecord, kRecordLen);
    char digest[65];
    char check[65];
    if (!sha256_hex(content.get(), len, digest) || !sha256_hex(content.get(), len, check) ||
        std::strcmp(digest, check) != 0 || !write_side_file(path, digest) ||
        ::ftruncate(fd, 0) != 0) {
        return false;
    }
    return ::pwrite(fd, content.get(), len, 0) == static_cast<ssize_t>(len) && ::fsync(fd) == 0;
}

void BM_ProtectedAppendFloor(benchmark::State &state) {
    jx::bench::run_append_floor(state, "floor", protected_append_floor);
}
BENCHMARK(BM_ProtectedAppendFloor)->Arg(4096)->Arg(64 << 10)->Arg(1 << 20);

long status_kib(const char *field) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word) {
        if (word == field) {
            long kib = 0;
            status >> kib;
            return kib;
        }
    }
    return -1;
}

// In a child, so that the peak is this write's alone: after a first append
// (which pages in the code and libraries it runs), the heap is made to map
// every large buffer afresh and to give back its free pages, the peak resident
// size is reset, and one more protected 16-byte append to the 1 MiB file is made.
long peak_of_one_append(const char *name) {
    if (::fork() != 0) {
        int status = 0;
        ::wait(&status);
        return WIFEXITED(status) ? WEXITSTATUS(status) * 64L : -1;
    }
    mallopt(M_MMAP_THRESHOLD, 128 << 10);
    JxFile *file = jx_fopen(name, "a");
    (void)jx_fwrite(kRecord, 1, kRecordLen, file);
    malloc_trim(0);  // free heap pages would hide the buffers reusing them
    std::ofstream("/proc/self/clear_refs") << "5";
    const long before = status_kib("VmHWM:");
    const bool written = file != nullptr && jx_fwrite(kRecord, 1, kRecordLen, file) == kRecordLen;
    const long added = status_kib("VmHWM:") - before;
    ::_exit(written && added >= 0 ? static_cast<int>(std::min(added / 64, 255L)) : 255);
}

void BM_ProtectedWritePeakMemory(benchmark::State &state) {
    const char name[] = "peak";
    static const bool registered = [&] {
        jx::test::write_file(jx::test::tier_path("bench", name), std::string(1 << 20, 'd'));
        return jx::test::register_items("bench", {jx::test::item_cfg(name, JX_PROTECT_E)}) == 0;
    }();
    if (!registered) {
        state.SkipWithError("registration failed");
        return;
    }
    long added = 0;
    for (auto _ : state) {
        added = peak_of_one_append(name);
    }
    state.counters["added_KiB"] = static_cast<double>(added);
    state.counters["x_payload"] = static_cast<double>(added) / 1024.0;
}
BENCHMARK(BM_ProtectedWritePeakMemory)->Iterations(1);

// One durable whole-content write: open, write, flush, fsync, close.
void BM_SetContent(benchmark::State &state) {
    const std::string content(static_cast<std::size_t>(state.range(0)), 'c');
    for (auto _ : state) {
        benchmark::DoNotOptimize(jx_set_content("/opt/ulx/save/bench", content.data(),
                                                static_cast<uint32_t>(content.size())));
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_SetContent)->Arg(64)->Arg(4096)->Arg(1 << 20);

}  // namespace
