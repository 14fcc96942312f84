#include "service.h"

#include <algorithm>
#include <unistd.h>

#include "exit_codes.h"
#include "frame/frame.h"
#include "item_lock.h"
#include "syncd_state.h"
#include "table_snapshot.h"

namespace jx::tools {
namespace {

constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kRetryUs = 1000 * kUsPerMs;

std::string companion_owner(const std::string &path) {
    const std::string suffix = kChecksumSuffix;
    if (path.size() > suffix.size() && path.ends_with(suffix)) {
        return path.substr(0, path.size() - suffix.size());
    }
    return path;
}

}  // namespace

Service::Service(const Settings &settings)
    : settings_(settings),
      budget_(static_cast<uint64_t>(settings.bytes_per_day), static_cast<uint64_t>(settings.burst),
              g_get_monotonic_time()),
      watcher_(std::make_unique<Watcher>(WatchHandler{
          [this](const std::string &path) { changed(path); }, [this] { mark_all(); }})) {
    seed_from_state_file();
}

// A restart keeps what operators read in the state file: the last sync of each
// file, the bytes written so far and the budget, so restarting never refills it.
void Service::seed_from_state_file() {
    SyncdState state;
    if (!read_syncd_state(state)) {
        return;
    }
    bytes_written_ = state.bytes_written;
    const int64_t now = g_get_monotonic_time();
    const int64_t idle_us = g_get_real_time() - state.updated * 1000000;
    budget_.restore(state.tokens, now - std::max<int64_t>(0, idle_us), now);
    for (const SyncdFile &file : state.files) {
        if (file.last_sync > 0) {
            last_sync_[file.path] = file.last_sync;
        }
    }
}

Service::~Service() {
    if (timer_ != 0) {
        g_source_remove(timer_);
    }
}

bool Service::reload(bool only_new) {
    TableSnapshot snapshot;
    if (take_snapshot(static_cast<uint32_t>(settings_.lock_wait_ms), snapshot) !=
        SnapshotResult::kOk) {
        return false;
    }
    std::map<std::string, RegItem> known;
    known.swap(items_);
    watcher_->watch(parent_of(kRegTablePath).c_str());
    const int64_t now = g_get_monotonic_time();
    for (const RegItem &item : snapshot.items) {
        items_[item.src] = item;
        watcher_->watch(parent_of(item.src).c_str());
        if (!only_new || !known.contains(item.src)) {
            mark(item.src, now, true);
        }
    }
    std::erase_if(pending_, [this](const auto &entry) { return !items_.contains(entry.first); });
    schedule();
    return true;
}

void Service::reconfigure(const Settings &settings) {
    settings_ = settings;
    budget_.reconfigure(static_cast<uint64_t>(settings.bytes_per_day),
                        static_cast<uint64_t>(settings.burst), g_get_monotonic_time());
}

void Service::changed(const std::string &path) {
    // Every start-up closes the table after writing, changed or not.
    if (path == kRegTablePath) {
        (void)reload(true);
        return;
    }
    const std::string owner = companion_owner(path);
    if (items_.contains(owner)) {
        mark(owner, g_get_monotonic_time(), false);
        schedule();
    }
}

void Service::mark_all() {
    const int64_t now = g_get_monotonic_time();
    for (const auto &entry : items_) {
        mark(entry.first, now, true);
    }
    schedule();
}

void Service::mark(const std::string &src, int64_t now_us, bool at_once) {
    auto [entry, added] = pending_.try_emplace(src, Pending{now_us, now_us, 0});
    entry->second.last_us = now_us;
    if (at_once) {
        entry->second.first_us = now_us - settings_.max_delay_ms * kUsPerMs;
    }
}

int64_t Service::due_us(const Pending &pending) const {
    const int64_t settled = pending.last_us + settings_.debounce_ms * kUsPerMs;
    const int64_t capped = pending.first_us + settings_.max_delay_ms * kUsPerMs;
    return std::max(std::min(settled, capped), pending.not_before_us);
}

int Service::sync_one(const RegItem &item, Pending &pending, bool final, int64_t now_us,
                      bool &retry) {
    const ItemLock lock(item, static_cast<uint32_t>(settings_.lock_wait_ms));
    if (!lock.held()) {
        pending.not_before_us = now_us + kRetryUs;
        retry = true;
        return kExitOperational;
    }
    uint64_t refused = 0;
    const Admit admit = [&](uint64_t bytes) {
        refused = bytes;
        return final || budget_.take(bytes, g_get_monotonic_time());
    };
    const SyncOutcome outcome = sync_item(item, false, admit);
    switch (outcome.result) {
    case SyncResult::kWritten:
        bytes_written_ += outcome.bytes;
        last_sync_[item.src] = g_get_real_time() / 1000000;
        break;
    case SyncResult::kThrottled:
        pending.not_before_us = now_us + budget_.wait_us(refused, now_us);
        retry = true;
        break;
    case SyncResult::kRebooting:
    case SyncResult::kFailed:
        pending.not_before_us = now_us + kRetryUs;
        retry = true;
        break;
    default: break;
    }
    return sync_exit_bits(outcome.result);
}

int Service::pass(bool final) {
    int bits = kExitClean;
    const int64_t now = g_get_monotonic_time();
    for (auto entry = pending_.begin(); entry != pending_.end();) {
        const auto item = items_.find(entry->first);
        if (item == items_.end()) {
            entry = pending_.erase(entry);
            continue;
        }
        if (!final && due_us(entry->second) > now) {
            ++entry;
            continue;
        }
        bool retry = false;
        bits |= sync_one(item->second, entry->second, final, now, retry);
        entry = retry ? std::next(entry) : pending_.erase(entry);
    }
    save_state();
    schedule();
    return bits;
}

void Service::schedule() {
    if (timer_ != 0) {
        g_source_remove(timer_);
        timer_ = 0;
    }
    if (pending_.empty()) {
        return;
    }
    int64_t next = INT64_MAX;
    for (const auto &entry : pending_) {
        next = std::min(next, due_us(entry.second));
    }
    const int64_t wait_ms = std::max<int64_t>(0, (next - g_get_monotonic_time()) / kUsPerMs + 1);
    timer_ = g_timeout_add(static_cast<guint>(std::min<int64_t>(wait_ms, G_MAXUINT)),
                           &Service::on_timer, this);
}

gboolean Service::on_timer(gpointer self) {
    auto *service = static_cast<Service *>(self);
    service->timer_ = 0;
    (void)service->pass(false);
    return G_SOURCE_REMOVE;
}

void Service::save_state() const {
    SyncdState state;
    state.pid = getpid();
    state.updated = g_get_real_time() / 1000000;
    state.bytes_per_day = budget_.bytes_per_day();
    state.burst = budget_.burst();
    state.tokens = budget_.tokens();
    state.bytes_written = bytes_written_;
    for (const auto &entry : items_) {
        const auto last = last_sync_.find(entry.first);
        state.files.push_back({entry.first, pending_.contains(entry.first),
                               last == last_sync_.end() ? 0 : last->second});
    }
    (void)write_syncd_state(state);
}

}  // namespace jx::tools
