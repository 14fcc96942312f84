#include <fcntl.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include <benchmark/benchmark.h>

#include "floor.h"
#include "jaxel.h"
#include "support/builders.h"
#include "support/sandbox.h"

namespace {

constexpr char kRecord[] = "0123456789abcdef";
constexpr std::size_t kRecordLen = sizeof kRecord - 1;

// The floor of BM_ProtectedAppend: the same append done with raw calls.
void BM_ProtectedAppendFloor(benchmark::State &state) {
    const auto size = static_cast<off_t>(state.range(0));
    const std::string path = "/opt/ulx/pram/floor" + std::to_string(size);
    jx::test::write_file(path, std::string(static_cast<std::size_t>(size), 'd'));
    const int fd = ::open(path.c_str(), O_RDWR);
    for (auto _ : state) {
        if (!jx::bench::protected_append_floor(fd, path, kRecord, kRecordLen)) {
            state.SkipWithError("floor append failed");
            break;
        }
        state.PauseTiming();
        (void)::ftruncate(fd, size);
        state.ResumeTiming();
    }
    ::close(fd);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * state.range(0));
}
BENCHMARK(BM_ProtectedAppendFloor)->Arg(4096)->Arg(64 << 10)->Arg(1 << 20);

// A fixed count of 100-byte log writes keeps the log file small.
constexpr int kLogWrites = 20000;
const std::string kLogLine(100, 'l');

void BM_LogWrite(benchmark::State &state) {
    JxItemCfg info = jx::test::item_cfg("bench.log", JX_PROTECT_C);
    info.path = "/opt/ulx/pram/bench.log";
    JxFile *log = jx_fopen_log_file(&info, "w");
    for (auto _ : state) {
        benchmark::DoNotOptimize(jx_fwrite_log(kLogLine.data(), 1, kLogLine.size(), log));
    }
    jx_fclose_log_file(log);
}
BENCHMARK(BM_LogWrite)->Iterations(kLogWrites);

void BM_LogWriteFloor(benchmark::State &state) {
    const int fd = ::open("/opt/ulx/pram/floor.log", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (auto _ : state) {
        benchmark::DoNotOptimize(jx::bench::log_write_floor(fd, kLogLine.data(), kLogLine.size()));
    }
    ::close(fd);
}
BENCHMARK(BM_LogWriteFloor)->Iterations(kLogWrites);

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
// size is reset, and one more
// protected 16-byte append to the 1 MiB file is made.
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

}  // namespace
