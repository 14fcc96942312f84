// inotify on the directories of the working copies and of the table.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>

#include <glib.h>

namespace jx::tools {

struct WatchHandler {
    std::function<void(const std::string &path)> changed;
    std::function<void()> overflow;
};

class Watcher {
public:
    explicit Watcher(WatchHandler handler);
    ~Watcher();
    Watcher(const Watcher &) = delete;
    Watcher &operator=(const Watcher &) = delete;

    bool ok() const { return fd_ >= 0; }
    void watch(const std::string &directory);
    // Hands the events in buf (as read from the descriptor) to the handler.
    void dispatch(const char *buf, std::size_t len) const;

private:
    static gboolean readable(gint fd, GIOCondition condition, gpointer self);

    WatchHandler handler_;
    int fd_;
    guint source_ = 0;
    std::map<int, std::string> directories_;
};

}  // namespace jx::tools
