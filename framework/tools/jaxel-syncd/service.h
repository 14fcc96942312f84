// The sync service: which files wait for a sync, when each is due and the
// passes that sync them within the wear budget.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include <glib.h>

#include "registry/registry.h"
#include "settings.h"
#include "sync_item.h"
#include "watcher.h"
#include "wear_budget.h"

namespace jx::tools {

class Service {
public:
    explicit Service(const Settings &settings);
    ~Service();
    Service(const Service &) = delete;
    Service &operator=(const Service &) = delete;

    // Reads the table anew and watches the directories; marks every file, or
    // with only_new the files the table did not list before.
    bool reload(bool only_new = false);
    void reconfigure(const Settings &settings);
    void changed(const std::string &path);
    void mark_all();
    // Syncs what is due (everything, and regardless of the budget, when final);
    // returns the exit bits of jaxelctl sync.
    int pass(bool final);
    std::size_t pending_count() const { return pending_.size(); }
    const Watcher &watcher() const { return *watcher_; }

private:
    struct Pending {
        int64_t first_us = 0;
        int64_t last_us = 0;
        int64_t not_before_us = 0;
    };

    void seed_from_state_file();
    void mark(const std::string &src, int64_t now_us, bool at_once);
    int64_t due_us(const Pending &pending) const;
    // Sets retry when the file must stay pending.
    int sync_one(const RegItem &item, Pending &pending, bool final, int64_t now_us, bool &retry);
    void schedule();
    void save_state() const;
    static gboolean on_timer(gpointer self);

    Settings settings_;
    std::map<std::string, RegItem> items_;
    std::map<std::string, Pending> pending_;
    std::map<std::string, int64_t> last_sync_;
    WearBudget budget_;
    uint64_t bytes_written_ = 0;
    std::unique_ptr<Watcher> watcher_;
    guint timer_ = 0;
};

}  // namespace jx::tools
