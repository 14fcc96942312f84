#include "watcher.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>

#include <glib-unix.h>

namespace jx::tools {
namespace {

constexpr uint32_t kEvents =
    IN_MODIFY | IN_CLOSE_WRITE | IN_CREATE | IN_MOVED_FROM | IN_MOVED_TO | IN_DELETE;

}  // namespace

Watcher::Watcher(WatchHandler handler)
    : handler_(std::move(handler)), fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ >= 0) {
        source_ = g_unix_fd_add(fd_, G_IO_IN, &Watcher::readable, this);
    }
}

Watcher::~Watcher() {
    if (source_ != 0) {
        g_source_remove(source_);
    }
    if (fd_ >= 0) {
        close(fd_);
    }
}

void Watcher::watch(const std::string &directory) {
    const int wd = fd_ < 0 ? -1 : inotify_add_watch(fd_, directory.c_str(), kEvents);
    if (wd >= 0) {
        directories_[wd] = directory;
    }
}

void Watcher::dispatch(const char *buf, std::size_t len) const {
    std::size_t at = 0;
    while (at + sizeof(inotify_event) <= len) {
        inotify_event event;
        std::memcpy(&event, buf + at, sizeof event);
        const char *name = buf + at + sizeof event;
        at += sizeof event + event.len;
        if ((event.mask & IN_Q_OVERFLOW) != 0) {
            handler_.overflow();
            continue;
        }
        const auto dir = directories_.find(event.wd);
        if (dir != directories_.end() && event.len > 0) {
            handler_.changed(dir->second + "/" + name);
        }
    }
}

gboolean Watcher::readable(gint fd, GIOCondition, gpointer self) {
    alignas(inotify_event) char buf[16384];
    ssize_t got = 0;
    while ((got = read(fd, buf, sizeof buf)) > 0) {
        static_cast<Watcher *>(self)->dispatch(buf, static_cast<std::size_t>(got));
    }
    return G_SOURCE_CONTINUE;
}

}  // namespace jx::tools
