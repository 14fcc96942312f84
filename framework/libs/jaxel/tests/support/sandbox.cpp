#include "support/sandbox.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sched.h>

namespace jx::test {
namespace {

bool g_in_sandbox = false;

bool failed(std::string &why, const std::string &what) {
    why = what + ": " + std::strerror(errno);
    return false;
}

bool mount_tmpfs(const char *where, const char *options, std::string &why) {
    return mount("tmpfs", where, "tmpfs", MS_NOSUID | MS_NODEV, options) == 0 ||
           failed(why, std::string("mount tmpfs on ") + where);
}

}  // namespace

bool enter_sandbox(std::string &why) {
    if (unshare(CLONE_NEWNS) != 0) {
        return failed(why, "unshare(CLONE_NEWNS)");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return failed(why, "make / private");
    }
    g_in_sandbox =
        mount_tmpfs("/opt", "mode=0755", why) && mount_tmpfs("/dev/shm", "mode=1777", why);
    if (g_in_sandbox) {
        reset_sandbox();
    }
    return g_in_sandbox;
}

void reset_sandbox() {
    if (!g_in_sandbox) {
        std::fprintf(stderr, "refusing to reset /opt/ulx outside the test sandbox\n");
        std::abort();
    }
    // Both are private tmpfs mounts here, so wiping them is safe.
    (void)std::system("rm -rf /opt/ulx /dev/shm/* /dev/shm/.[!.]* 2>/dev/null");
    for (const char *dir : {"/opt/ulx", "/opt/ulx/pram", "/opt/ulx/save", "/opt/ulx/pflash"}) {
        mkdir(dir, 0755);
    }
}

void write_file(const std::string &path, const std::string &content) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
}

std::string read_file(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool exists(const std::string &path) { return access(path.c_str(), F_OK) == 0; }

int open_descriptor_count() {
    std::error_code error;
    const auto fds = std::filesystem::directory_iterator("/proc/self/fd", error);
    return error ? -1 : static_cast<int>(std::distance(fds, std::filesystem::directory_iterator()));
}

}  // namespace jx::test
