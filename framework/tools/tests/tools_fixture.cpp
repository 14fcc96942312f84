#include "tools_fixture.h"

#include <sys/wait.h>

#include <glib.h>

namespace jx::test {

void lay_registered(const std::string &text) {
    write_file(kFactoryLive, "live");
    ASSERT_EQ(in_child([&] {
                  return register_items("md", {item_cfg("a", JX_PROTECT_E),
                                               item_cfg(kFactoryLive.c_str(), JX_PROTECT_F)}) ||
                         write_text(open_handle("a", "w").get(), text) !=
                             static_cast<int32_t>(text.size());
              }),
              0);
}

void write_through_library(const char *short_name, const std::string &text) {
    ASSERT_EQ(in_child([&] {
                  return register_items("md", {item_cfg(short_name, JX_PROTECT_E)}) ||
                         write_text(open_handle(short_name, "w").get(), text) !=
                             static_cast<int32_t>(text.size());
              }),
              0);
}

ToolRun run_tool(const char *program, const std::vector<std::string> &args) {
    std::vector<char *> argv{const_cast<char *>(program)};
    for (const std::string &arg : args) {
        argv.push_back(const_cast<char *>(arg.c_str()));
    }
    argv.push_back(nullptr);
    ToolRun run;
    gchar *out = nullptr;
    int status = 0;
    if (g_spawn_sync(nullptr, argv.data(), nullptr, G_SPAWN_STDERR_TO_DEV_NULL, nullptr, nullptr,
                     &out, nullptr, &status, nullptr)) {
        run.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.out = out;
    }
    g_free(out);
    return run;
}

std::map<std::string, std::string> all_files() {
    std::map<std::string, std::string> files;
    for (const char *dir : {"/opt/ulx/pram", "/opt/ulx/save", "/opt/ulx/pflash"}) {
        GDir *listing = g_dir_open(dir, 0, nullptr);
        for (const char *name; listing != nullptr && (name = g_dir_read_name(listing));) {
            const std::string path = std::string(dir) + "/" + name;
            files[path] = read_file(path);
        }
        if (listing != nullptr) {
            g_dir_close(listing);
        }
    }
    return files;
}

}  // namespace jx::test
