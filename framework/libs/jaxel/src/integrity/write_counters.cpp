#include <cstdint>

#include "integrity/integrity.h"
#include "jaxel.h"

namespace {
// Per process and deliberately unsynchronised: they are statistics, not state.
uint64_t g_jx_write_counters[3];
constexpr uint32_t kCounterCount = 3;
}  // namespace

namespace jx {
void add_to_write_counter(uint32_t index, uint64_t amount) noexcept {
    if (index < kCounterCount) {
        g_jx_write_counters[index] += amount;
    }
}
}  // namespace jx

extern "C" void jx_wirte_cnt_set(uint32_t index, uint32_t count) noexcept {
    jx::add_to_write_counter(index, count);
}

extern "C" uint64_t jx_wirte_cnt_get(uint32_t index) noexcept {
    return index < kCounterCount ? g_jx_write_counters[index] : UINT64_MAX;
}
