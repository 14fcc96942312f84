#include <cstdint>

#include "integrity/integrity.h"

namespace jx {
namespace {
// Per process and deliberately unsynchronised: they are statistics, not state.
uint64_t g_jx_write_counters[3];
constexpr uint32_t kCounterCount = 3;
}  // namespace

void add_to_write_counter(uint32_t index, uint64_t amount) noexcept {
    if (index < kCounterCount) {
        g_jx_write_counters[index] += amount;
    }
}

uint64_t write_counter(uint32_t index) noexcept {
    return index < kCounterCount ? g_jx_write_counters[index] : UINT64_MAX;
}

}  // namespace jx
