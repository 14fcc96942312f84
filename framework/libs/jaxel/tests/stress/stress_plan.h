// The load that the stress test puts on the library: several processes, each
// with several threads, sharing one module's files and one key file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "jaxel.h"

namespace jx::stress {

inline constexpr const char *kModule = "stress";
inline constexpr int kWorkers = 4;
inline constexpr int kFileThreads = 3;
inline constexpr int kRounds = 40;
inline constexpr int kKeyRounds = 10;
// Worker 0 keeps the key file this long on every round, so that the others
// queue behind its hold.
inline constexpr int kHoldMs = 30;

inline constexpr const char *kKeyPath = "/opt/ulx/pram/stress_counter.ini";
inline constexpr const char *kKeyLockPath = "/opt/ulx/pram/stress_counter.lock";
inline constexpr const char *kKeyGroup = "counter";
inline constexpr const char *kKeyName = "value";

struct ModuleFile {
    const char *short_name;
    const char *path;
    uint32_t protect_mode;
};

inline constexpr ModuleFile kFiles[] = {
    {"journal", "/opt/ulx/pram/stress_journal", JX_PROTECT_E},
    {"ledger", "/opt/ulx/pram/stress_ledger", JX_PROTECT_R},
};

// Every byte the workers write is one of these; anything else found in a file
// is damage.
bool is_record_text(const char *data, size_t len);

// Ends of the pipes through which the parent starts all workers at once.
struct Gate {
    int ready_fd;  // the worker writes one byte here once it is registered
    int go_fd;     // end of file here means: start
};

// One worker process's share of the load; returns its exit status, 0 when
// every operation gave what it should and nothing leaked.
int run_worker(int index, Gate gate);

}  // namespace jx::stress
