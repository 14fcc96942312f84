// A token bucket over the bytes written to the save area and flash: it refills
// at bytes_per_day and holds at most burst. A write larger than the burst goes
// once the bucket is full, so throttling only ever delays.
#pragma once

#include <cstdint>

namespace jx::tools {

class WearBudget {
public:
    // bytes_per_day 0: no limit.
    WearBudget(uint64_t bytes_per_day, uint64_t burst, int64_t now_us);

    void reconfigure(uint64_t bytes_per_day, uint64_t burst, int64_t now_us);
    // Takes up the tokens a previous run left at since_us, refilled for the time between.
    void restore(double tokens, int64_t since_us, int64_t now_us);
    bool take(uint64_t bytes, int64_t now_us);
    // Microseconds until take(bytes) can succeed.
    int64_t wait_us(uint64_t bytes, int64_t now_us);

    uint64_t bytes_per_day() const { return per_day_; }
    uint64_t burst() const { return burst_; }
    double tokens() const { return tokens_; }

private:
    void refill(int64_t now_us);
    double needed(uint64_t bytes) const;

    uint64_t per_day_;
    uint64_t burst_;
    double tokens_;
    int64_t stamp_us_;
};

}  // namespace jx::tools
