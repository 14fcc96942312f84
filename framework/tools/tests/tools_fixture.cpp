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

void write_through_library(const char *short_name, const std::string &text, uint32_t mode) {
    ASSERT_EQ(in_child([&] {
                  return register_items("md", {item_cfg(short_name, mode)}) ||
                         write_text(open_handle(short_name, "w").get(), text) !=
                             static_cast<int32_t>(text.size());
              }),
              0);
}

namespace {

// The emulator's words (in cross builds), the program and its arguments.
std::vector<std::string> command_of(const char *program, const std::vector<std::string> &args) {
    std::vector<std::string> words;
#ifdef JAXEL_TOOL_EMULATOR
    gchar **emulator = g_strsplit(JAXEL_TOOL_EMULATOR, " ", -1);
    words.assign(emulator, emulator + g_strv_length(emulator));
    g_strfreev(emulator);
#endif
    words.push_back(program);
    words.insert(words.end(), args.begin(), args.end());
    return words;
}

std::vector<char *> argv_of(std::vector<std::string> &words) {
    std::vector<char *> argv;
    for (std::string &word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    return argv;
}

}  // namespace

int start_tool(const char *program, const std::vector<std::string> &args) {
    std::vector<std::string> words = command_of(program, args);
    GPid pid = 0;
    return g_spawn_async(nullptr, argv_of(words).data(), nullptr,
                         static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH),
                         nullptr, nullptr, &pid, nullptr)
               ? pid
               : 0;
}

ToolRun run_tool(const char *program, const std::vector<std::string> &args) {
    std::vector<std::string> words = command_of(program, args);
    ToolRun run;
    gchar *out = nullptr;
    int status = 0;
    if (g_spawn_sync(nullptr, argv_of(words).data(), nullptr,
                     static_cast<GSpawnFlags>(G_SPAWN_STDERR_TO_DEV_NULL | G_SPAWN_SEARCH_PATH),
                     nullptr, nullptr, &out, nullptr, &status, nullptr)) {
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
