#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <string>

#include <benchmark/benchmark.h>

#include "jaxel.h"
#include "support/builders.h"

namespace {

// A fixed count of 100-byte log writes keeps the log file small.
constexpr int kLogWrites = 20000;
const std::string kLogLine(100, 'l');

void BM_LogWrite(benchmark::State &state) {
    // Like every process of the library, this one starts up before it logs.
    jx::test::register_items("bench", {jx::test::item_cfg("bench.cfg", JX_PROTECT_C)});
    JxItemCfg info = jx::test::item_cfg("bench.log", JX_PROTECT_C);
    info.path = "/opt/ulx/pram/bench.log";
    JxFile *log = jx_fopen_log_file(&info, "w");
    for (auto _ : state) {
        benchmark::DoNotOptimize(jx_fwrite_log(kLogLine.data(), 1, kLogLine.size(), log));
    }
    jx_fclose_log_file(log);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kLogLine.size()));
}
BENCHMARK(BM_LogWrite)->Iterations(kLogWrites);

// The floor of a log write done with raw calls: the reboot-flag test, the lock
// on the file, the write.
bool log_write_floor(int fd) {
    if (::access("/dev/shm/.Reboot.flag", F_OK) == 0 || ::flock(fd, LOCK_EX) != 0) {
        return false;
    }
    const bool written =
        ::write(fd, kLogLine.data(), kLogLine.size()) == static_cast<ssize_t>(kLogLine.size());
    return ::flock(fd, LOCK_UN) == 0 && written;
}

void BM_LogWriteFloor(benchmark::State &state) {
    const int fd = ::open("/opt/ulx/pram/floor.log", O_WRONLY | O_CREAT | O_TRUNC, 0644);
    for (auto _ : state) {
        benchmark::DoNotOptimize(log_write_floor(fd));
    }
    ::close(fd);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kLogLine.size()));
}
BENCHMARK(BM_LogWriteFloor)->Iterations(kLogWrites);

}  // namespace
