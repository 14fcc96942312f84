#include "support/sandbox.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <sched.h>

#include "journal/record.h"

// Suites on the internal objects map the census; the contract suite, on the
// public library alone, has none to forget.
namespace jx::redo {
[[gnu::weak]] void forget_census() noexcept;
}

namespace jx::test {
namespace {

bool g_in_sandbox = false;

bool mount_tmpfs(const char *where, const char *options) {
    return mount("tmpfs", where, "tmpfs", MS_NOSUID | MS_NODEV, options) == 0;
}

// JAXEL_SANDBOX_OPT names a scratch directory to stand in for /opt instead of
// a fresh tmpfs, so that benchmarks can run on disk.
bool mount_opt() {
    const char *scratch = std::getenv("JAXEL_SANDBOX_OPT");
    return scratch == nullptr ? mount_tmpfs("/opt", "mode=0755")
                              : mount(scratch, "/opt", nullptr, MS_BIND, nullptr) == 0;
}

}  // namespace

bool enter_sandbox() {
    g_in_sandbox = unshare(CLONE_NEWNS) == 0 &&
                   mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 && mount_opt() &&
                   mount_tmpfs("/dev/shm", "mode=1777");
    if (!g_in_sandbox) {
        std::perror("cannot enter the private mount namespace with tmpfs over /opt and /dev/shm");
        return false;
    }
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
    fresh_census();
    for (const char *dir : {"/opt/ulx", "/opt/ulx/pram", "/opt/ulx/save", "/opt/ulx/pflash"})
        mkdir(dir, 0755);
}

void fresh_census() {
    (void)::unlink(redo::kCensusPath);
    if (&redo::forget_census != nullptr) {
        redo::forget_census();
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

}  // namespace jx::test
