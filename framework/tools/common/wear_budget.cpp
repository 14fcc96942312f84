#include "wear_budget.h"

#include <algorithm>
#include <cmath>

namespace jx::tools {
namespace {

constexpr double kMicrosPerDay = 86400.0 * 1e6;

}  // namespace

WearBudget::WearBudget(uint64_t bytes_per_day, uint64_t burst, int64_t now_us)
    : per_day_(bytes_per_day),
      burst_(burst),
      tokens_(static_cast<double>(burst)),
      stamp_us_(now_us) {}

void WearBudget::reconfigure(uint64_t bytes_per_day, uint64_t burst, int64_t now_us) {
    refill(now_us);
    per_day_ = bytes_per_day;
    burst_ = burst;
    tokens_ = std::min(tokens_, static_cast<double>(burst_));
}

void WearBudget::restore(double tokens, int64_t since_us, int64_t now_us) {
    tokens_ = std::min(tokens, static_cast<double>(burst_));
    stamp_us_ = std::min(since_us, now_us);
    refill(now_us);
}

void WearBudget::refill(int64_t now_us) {
    const double rate = static_cast<double>(per_day_) / kMicrosPerDay;
    tokens_ = std::min(static_cast<double>(burst_),
                       tokens_ + rate * static_cast<double>(now_us - stamp_us_));
    stamp_us_ = now_us;
}

double WearBudget::needed(uint64_t bytes) const {
    return std::min(static_cast<double>(bytes), static_cast<double>(burst_));
}

bool WearBudget::take(uint64_t bytes, int64_t now_us) {
    if (per_day_ == 0) {
        return true;
    }
    refill(now_us);
    if (tokens_ < needed(bytes)) {
        return false;
    }
    tokens_ -= static_cast<double>(bytes);
    return true;
}

int64_t WearBudget::wait_us(uint64_t bytes, int64_t now_us) {
    if (per_day_ == 0) {
        return 0;
    }
    refill(now_us);
    const double missing = needed(bytes) - tokens_;
    if (missing <= 0) {
        return 0;
    }
    return static_cast<int64_t>(std::ceil(missing * kMicrosPerDay / static_cast<double>(per_day_)));
}

}  // namespace jx::tools
