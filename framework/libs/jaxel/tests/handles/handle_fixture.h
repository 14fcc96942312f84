// Shared set-up of the handle tests: files of module "app", digests and
// archive listings.
#pragma once

#include <string>
#include <sys/stat.h>

#include <glib.h>
#include <gtest/gtest.h>

#include "integrity/digest.h"
#include "jaxel.h"
#include "maintenance/maintenance.h"
#include "support/log_capture.h"
#include "support/registration.h"
#include "support/sandbox.h"

namespace jx::test {

inline constexpr gid_t kTestGroup = 5;

inline JxItemCfg item_cfg(const char *short_name, uint32_t protect_mode, int32_t package_size = 0,
                          JxPackageCallback callback = nullptr) {
    JxItemCfg cfg{};
    cfg.short_name = short_name;
    cfg.protect_mode = protect_mode;
    cfg.package_size = package_size;
    cfg.callback = callback;
    cfg.privilege = make_privilege(0x640, kTestGroup);
    return cfg;
}

// The exact 65-byte side file of content.
inline std::string side_file_text(const std::string &content) {
    char hex[kSha256HexSize];
    sha256_hex(content.data(), content.size(), hex);
    return std::string(hex, kSha256HexSize);
}

inline std::string last_message(const LogCapture &log) {
    const auto messages = log.messages();
    return messages.empty() ? std::string() : messages.back();
}

inline struct stat stat_of(const std::string &path) {
    struct stat st {};
    stat(path.c_str(), &st);
    return st;
}

// Standard output of a program run without a shell, or "<failed>".
inline std::string run_output(std::initializer_list<const char *> args) {
    std::vector<const char *> argv(args);
    argv.push_back(nullptr);
    gchar *out = nullptr;
    gint status = 0;
    const bool ran =
        g_spawn_sync(nullptr, const_cast<gchar **>(argv.data()), nullptr, G_SPAWN_SEARCH_PATH,
                     nullptr, nullptr, &out, nullptr, &status, nullptr);
    const std::string text = ran && status == 0 ? out : "<failed>";
    g_free(out);
    return text;
}

class HandleTest : public SandboxTest {
protected:
    void SetUp() override {
        SandboxTest::SetUp();
        jx_set_module_name("app");
    }

    static std::string register_file(const JxItemCfg &cfg) { return register_for_test("app", cfg); }

    static int32_t write_text(JxFile *handle, const std::string &text) {
        return jx_fwrite(text.data(), 1, static_cast<uint32_t>(text.size()), handle);
    }
};

}  // namespace jx::test
