#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <glib.h>

#include "stress/stress_plan.h"

// Present only in sanitizer builds.
extern "C" int __lsan_do_recoverable_leak_check() __attribute__((weak));

namespace jx::stress {
namespace {

std::atomic<int> g_failures{0};

void report(const char *what, const char *file, long got) {
    std::fprintf(stderr, "[worker %d] %s on %s gave %ld\n", static_cast<int>(getpid()), what, file,
                 got);
    g_failures.fetch_add(1);
}

void expect(bool ok, const char *what, const char *file, long got) {
    if (!ok) {
        report(what, file, got);
    }
}

int count_open_descriptors() {
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return -1;
    }
    int n = 0;
    while (const dirent *entry = readdir(dir)) {
        n += entry->d_name[0] != '.';
    }
    closedir(dir);
    return n;
}

// A read handle sees only whole writes of record text, whatever runs beside it.
void read_through_handle(const ModuleFile &file) {
    JxFile *handle = jx_fopen(file.short_name, "r");
    if (handle == nullptr) {
        report("jx_fopen(r)", file.short_name, 0);
        return;
    }
    char buf[1024];
    size_t n = 0;
    while ((n = std::fread(buf, 1, sizeof buf, handle->fd)) > 0) {
        expect(is_record_text(buf, n), "content check", file.short_name, static_cast<long>(n));
    }
    jx_fclose(handle);
}

void edit_round(const ModuleFile &file, JxFile *append, JxFile *edit, int worker, int thread,
                int round) {
    char record[64];
    const int len = std::snprintf(record, sizeof record, "w%dt%dr%d;\n", worker, thread, round);
    const auto count = static_cast<uint32_t>(len);
    expect(jx_fwrite(record, 1, count, append) == len, "jx_fwrite", file.short_name, len);
    expect(jx_insert("<in>", 4, 0, edit) == 0, "jx_insert", file.short_name, 0);
    // Another thread may just have emptied the file: then the range lies outside it.
    const int32_t modified = jx_modify("MOD", 3, 0, 2, edit);
    expect(modified == 0 || modified == JX_ERR_PARAM3, "jx_modify", file.short_name, modified);
    const int32_t deleted = jx_delete(20, 2, edit);
    expect(deleted == 0, "jx_delete", file.short_name, deleted);
    if (round % kFileThreads == thread) {
        const int32_t cleared = jx_clear_file(file.short_name);
        expect(cleared == 0, "jx_clear_file", file.short_name, cleared);
    }
    read_through_handle(file);
}

void churn(const ModuleFile &file, int worker, int thread) {
    JxFile *append = jx_fopen(file.short_name, "a");
    JxFile *edit = jx_fopen(file.short_name, "r+");
    if (append != nullptr && edit != nullptr) {
        for (int round = 0; round < kRounds; ++round) {
            edit_round(file, append, edit, worker, thread, round);
        }
    } else {
        report("jx_fopen(a, r+)", file.short_name, 0);
    }
    jx_fclose(append);
    jx_fclose(edit);
}

void count_in_key_file(int worker) {
    const int lock_fd = open(kKeyLockPath, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock_fd < 0) {
        report("open", kKeyLockPath, errno);
        return;
    }
    for (int round = 0; round < kKeyRounds; ++round) {
        GKeyFile *key = jx_open_key_file(kKeyPath, lock_fd, 1);
        if (key == nullptr) {
            report("jx_open_key_file", kKeyPath, 0);
            continue;
        }
        const guint64 value = g_key_file_get_uint64(key, kKeyGroup, kKeyName, nullptr);
        if (worker == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(kHoldMs));
        }
        g_key_file_set_uint64(key, kKeyGroup, kKeyName, value + 1);
        const int32_t written = jx_writeback_key_file(key, kKeyPath);
        expect(written == 0, "jx_writeback_key_file", kKeyPath, written);
        const int32_t closed = jx_close_key_file(key, lock_fd, 1);
        expect(closed == 0, "jx_close_key_file", kKeyPath, closed);
    }
    close(lock_fd);
}

bool register_files() {
    std::vector<JxItemCfg> cfg;
    for (const ModuleFile &file : kFiles) {
        JxItemCfg item{};
        item.short_name = file.short_name;
        item.protect_mode = file.protect_mode;
        item.privilege = 0x640;
        cfg.push_back(item);
    }
    const int32_t rc = jx_init(cfg.data(), static_cast<int32_t>(cfg.size()));
    expect(rc == 0, "jx_init", kModule, rc);
    return rc == 0;
}

bool pass_gate(Gate gate) {
    char c = 0;
    return write(gate.ready_fd, "R", 1) == 1 && read(gate.go_fd, &c, 1) == 0;
}

void run_threads(int worker) {
    std::vector<std::thread> threads;
    for (const ModuleFile &file : kFiles) {
        for (int t = 0; t < kFileThreads; ++t) {
            threads.emplace_back(churn, std::cref(file), worker, t);
        }
    }
    threads.emplace_back(count_in_key_file, worker);
    for (std::thread &thread : threads) {
        thread.join();
    }
}

}  // namespace

bool is_record_text(const char *data, size_t len) {
    for (size_t i = 0; i < len; ++i) {
        const char c = data[i];
        if (c == '\0' || (!g_ascii_isalnum(c) && std::strchr(";\n<>", c) == nullptr)) {
            return false;
        }
    }
    return true;
}

int run_worker(int index, Gate gate) {
    if (jx_set_module_name(kModule) != 0 || !register_files()) {
        return 1;
    }
    const int descriptors = count_open_descriptors();
    if (!pass_gate(gate)) {
        report("start gate", kModule, errno);
        return 1;
    }
    run_threads(index);
    const int left_open = count_open_descriptors();
    expect(left_open == descriptors, "descriptor count", kModule, left_open - descriptors);
    if (__lsan_do_recoverable_leak_check != nullptr) {
        expect(__lsan_do_recoverable_leak_check() == 0, "leak check", kModule, 1);
    }
    return g_failures.load() == 0 ? 0 : 1;
}

}  // namespace jx::stress
