#include "support/power_loss.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <stdio_ext.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/io.h"
#include "support/io_faults.h"
#include "support/sandbox.h"

namespace jx::test {
namespace {

// cppcheck cannot see the uses through the map's references.
struct Durable {
    // cppcheck-suppress unusedStructMember
    std::string bytes;  // as of the last fsync, or of first use
    // cppcheck-suppress unusedStructMember
    bool linked;  // whether the directory entry would survive
};

struct State {
    CrashModel model;
    int crash_step;
    int steps = 0;
    std::map<std::string, Durable> files;
    Io saved;
};
State *g_state = nullptr;

const Io &real() { return g_state->saved; }

std::string path_of(int fd) {
    std::error_code err;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), err).string();
}

// First use of a path: what is there now is what storage holds.
void see(const std::string &path) {
    struct stat st {};
    const bool present = stat(path.c_str(), &st) == 0;
    if (path.starts_with("/opt/ulx/") && !path.starts_with("/opt/ulx/pflash/") &&
        !g_state->files.contains(path) && (!present || S_ISREG(st.st_mode))) {
        g_state->files[path] = {present ? read_file(path) : "", present};
    }
}

// What a cut leaves of a file: its synced bytes, or with kStrictTorn the
// first half of its unsynced change over them.
std::string after_cut(const std::string &synced, const std::string &now) {
    if (g_state->model != CrashModel::kStrictTorn)
        return synced;
    const auto same = static_cast<size_t>(
        std::mismatch(synced.begin(), synced.end(), now.begin(), now.end()).second - now.begin());
    const size_t cut = same + (now.size() - same) / 2;
    return now.substr(0, cut) + (cut < synced.size() ? synced.substr(cut) : "");
}

[[noreturn]] void cut_power() {
    for (const auto &[path, durable] : g_state->files) {
        if (g_state->model == CrashModel::kPersistentRam && !path.starts_with("/opt/ulx/save/"))
            continue;
        durable.linked ? write_file(path, after_cut(durable.bytes, read_file(path)))
                       : (void)::unlink(path.c_str());
    }
    _exit(kCrashExitStatus);
}

void step() {
    if (++g_state->steps == g_state->crash_step)
        cut_power();
}

void step_on(int fd) {
    see(path_of(fd));
    step();
}

// A stream call is a step when it may move bytes to the file.
void step_on(FILE *stream, bool always) {
    if (stream == nullptr || always || __fpending(stream) > 0)
        stream != nullptr ? step_on(fileno(stream)) : step();
}

int on_fsync(int fd) {
    step_on(fd);
    const int rc = real().fsync(fd);
    struct stat st {};
    const std::string path = path_of(fd);
    if (rc != 0 || fstat(fd, &st) != 0)
        return rc;
    for (auto &[file, durable] : g_state->files) {
        if (S_ISDIR(st.st_mode) && file.substr(0, file.rfind('/')) == path) {
            durable.linked = exists(file);
        } else if (file == path) {
            durable.bytes = read_file(file);
        }
    }
    return rc;
}

}  // namespace

PowerLoss::PowerLoss(CrashModel model, int crash_step) {
    g_state = new State{model, crash_step, 0, {}, io()};
    Io &hook = io();
    hook.open = [](const char *p, int f, mode_t m) { return see(p), real().open(p, f, m); };
    hook.fopen = [](const char *p, const char *m) { return see(p), real().fopen(p, m); };
    hook.fwrite = [](const void *d, size_t s, size_t n, FILE *f) {
        return step_on(f, true), real().fwrite(d, s, n, f);
    };
    hook.fputc = [](int c, FILE *f) { return step_on(f, true), real().fputc(c, f); };
    hook.fflush = [](FILE *f) { return step_on(f, false), real().fflush(f); };
    hook.fseek = [](FILE *f, off_t o, int w) { return step_on(f, false), real().fseek(f, o, w); };
    hook.fclose = [](FILE *f) { return step_on(f, false), real().fclose(f); };
    hook.ftruncate = [](int fd, off_t n) { return step_on(fd), real().ftruncate(fd, n); };
    hook.write = [](int fd, const void *d, size_t n) {
        return step_on(fd), real().write(fd, d, n);
    };
    hook.pwrite = [](int fd, const void *d, size_t n, off_t o) {
        return step_on(fd), real().pwrite(fd, d, n, o);
    };
    hook.fsync = on_fsync;
    hook.unlink = [](const char *p) { return see(p), step(), real().unlink(p); };
    hook.rename = [](const char *f, const char *t) {
        return see(f), see(t), step(), real().rename(f, t);
    };
    hook.mkdir = [](const char *p, mode_t m) { return step(), real().mkdir(p, m); };
    hook.run = [](const char *p, char *const a[]) { return step(), real().run(p, a); };
    hook.pflash_write = [](void *h, const void *b, uint32_t n) {
        return step(), real().pflash_write(h, b, n);
    };
}

PowerLoss::~PowerLoss() {
    const auto syslog = io().syslog;  // keep a log hook installed after us
    io() = g_state->saved;
    io().syslog = syslog;
    delete g_state;
    g_state = nullptr;
}

int PowerLoss::steps() const { return g_state->steps; }

}  // namespace jx::test
