#include "support/io_faults.h"

#include <atomic>
#include <cerrno>
#include <tuple>
#include <type_traits>
#include <unistd.h>
#include <utility>

#include "frame/io.h"

namespace jx::test {
namespace {

struct Rule {
    std::atomic<int> count{0};
    int fail_at = 0;
    int err = 0;
    bool sticky = false;
    int crash_at = 0;
};

Rule g_rules[static_cast<int>(Call::kCount)];
Io g_saved;

// The hooked entries, in the order of Call.
#define JX_TEST_IO_MEMBER(name, member) &Io::member
constexpr std::tuple kEntries{JX_TEST_HOOKED_CALLS(JX_TEST_IO_MEMBER)};
#undef JX_TEST_IO_MEMBER

// Counts the call; fails it (errno set) or ends the process as its rule says.
template <Call kCall, auto kEntry, typename R, typename... A>
R hooked(A... args) {
    Rule &rule = g_rules[static_cast<int>(kCall)];
    const int n = ++rule.count;
    if (rule.crash_at == n)
        _exit(kCrashExitStatus);
    if (rule.fail_at == 0 || n < rule.fail_at || (n > rule.fail_at && !rule.sticky))
        return (g_saved.*kEntry)(args...);
    errno = rule.err;
    if constexpr (std::is_void_v<R>) {
        (g_saved.*kEntry)(args...);
    } else if constexpr (std::is_pointer_v<R> || std::is_unsigned_v<R>) {
        return R{};  // no stream, nothing written
    } else {
        // A program run fails with status 1; flash calls return the negated errno.
        const bool flash = kCall >= Call::kPflashWrite && kCall <= Call::kPflashRecover;
        return kCall == Call::kRun ? 1 : flash ? -rule.err : -1;
    }
}

template <Call kCall, auto kEntry, typename R, typename... A>
constexpr auto hook_for(R (*)(A...)) {
    return &hooked<kCall, kEntry, R, A...>;
}

template <std::size_t... kI>
void hook_all(std::index_sequence<kI...>) {
    ((io().*std::get<kI>(kEntries) =
          hook_for<static_cast<Call>(kI), std::get<kI>(kEntries)>(io().*std::get<kI>(kEntries))),
     ...);
}

}  // namespace

IoFaults::IoFaults() {
    g_saved = io();
    for (Rule &rule : g_rules) {
        rule.count = 0;
        rule.fail_at = rule.err = rule.crash_at = 0;
        rule.sticky = false;
    }
    hook_all(std::make_index_sequence<static_cast<int>(Call::kCount)>());
}

IoFaults::~IoFaults() {
    // Keep the log hook that may have been installed after us.
    const auto syslog = io().syslog;
    io() = g_saved;
    io().syslog = syslog;
}

void IoFaults::fail(Call call, int nth, int err, bool sticky) {
    Rule &rule = g_rules[static_cast<int>(call)];
    rule.fail_at = rule.count + nth;
    rule.err = err;
    rule.sticky = sticky;
}

void IoFaults::crash_before(Call call, int nth) {
    g_rules[static_cast<int>(call)].crash_at = g_rules[static_cast<int>(call)].count + nth;
}

int IoFaults::count(Call call) const { return g_rules[static_cast<int>(call)].count; }

}  // namespace jx::test
