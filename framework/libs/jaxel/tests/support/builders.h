// Shared builders: configuration elements, registration through the real
// start-up, handles that close themselves, and child processes.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "jaxel.h"

namespace jx::test {

inline constexpr uint32_t kTestGroup = 5;

constexpr JxPrivilege privilege_of(uint32_t mode_code, uint32_t group) {
    return (static_cast<JxPrivilege>(group) << 32) | mode_code;
}

JxItemCfg item_cfg(const char *short_name, uint32_t protect_mode, int32_t package_size = 0,
                   const char *path = nullptr, JxPackageCallback callback = nullptr);

// Names the process `module` and registers `items` through jx_init_cfg.
int32_t register_items(const char *module, const std::vector<JxItemCfg> &items);

// A module file's path on a tier (0 working area, 1 save area, 3 flash).
std::string tier_path(const char *module, const char *short_name, uint32_t tier = 0);

using Handle = std::unique_ptr<JxFile, void (*)(JxFile *)>;
Handle open_handle(const char *short_name, const char *mode);
int32_t write_text(JxFile *handle, const std::string &text);

// Runs `body` in a forked child; its result is the child's exit status.
// Returns that status, or -1 when the child did not exit normally.
int in_child(const std::function<int()> &body);

struct stat stat_of(const std::string &path);
// "mode owner:group" of a file, the mode in octal.
std::string access_of(const std::string &path);

// "tar <flags> <package>" run without a shell; its output, or "<failed>".
std::string tar(const char *flags, const std::string &package);

}  // namespace jx::test
