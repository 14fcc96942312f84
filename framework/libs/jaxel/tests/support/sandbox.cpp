#include "support/sandbox.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sched.h>

namespace jx::test {
namespace {

const char *const kTierDirs[] = {"/opt/ulx", "/opt/ulx/pram", "/opt/ulx/save", "/opt/ulx/pflash"};
bool g_in_sandbox = false;

bool mount_tmpfs(const char *where, const char *options, std::string &why) {
    if (mount("tmpfs", where, "tmpfs", MS_NOSUID | MS_NODEV, options) != 0) {
        why = std::string("mount tmpfs on ") + where + ": " + std::strerror(errno);
        return false;
    }
    return true;
}

}  // namespace

bool enter_sandbox(std::string &why) {
    if (unshare(CLONE_NEWNS) != 0) {
        why = std::string("unshare(CLONE_NEWNS): ") + std::strerror(errno);
        return false;
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        why = std::string("make / private: ") + std::strerror(errno);
        return false;
    }
    if (!mount_tmpfs("/opt", "mode=0755", why) || !mount_tmpfs("/dev/shm", "mode=1777", why)) {
        return false;
    }
    g_in_sandbox = true;
    reset_sandbox();
    return true;
}

void reset_sandbox() {
    if (!g_in_sandbox) {
        std::fprintf(stderr, "refusing to reset /opt/ulx outside the test sandbox\n");
        std::abort();
    }
    // Both are private tmpfs mounts here, so wiping them is safe.
    (void)std::system("rm -rf /opt/ulx /dev/shm/* /dev/shm/.[!.]* 2>/dev/null");
    for (const char *dir : kTierDirs) {
        mkdir(dir, 0755);
    }
}

void write_file(const std::string &path, const std::string &content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

int open_descriptor_count() {
    int n = 0;
    DIR *dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return -1;
    }
    while (readdir(dir) != nullptr) {
        ++n;
    }
    closedir(dir);
    return n;
}

}  // namespace jx::test
