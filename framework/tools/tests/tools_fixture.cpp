#include "tools_fixture.h"

#include <filesystem>
#include <sys/wait.h>

#include <glib.h>

namespace jx::test {

void write_through_library(const char *short_name, const std::string &text) {
    ASSERT_EQ(in_child([&] {
                  return register_items("md", {item_cfg(short_name, JX_PROTECT_E)}) ||
                         write_text(open_handle(short_name, "w").get(), text) !=
                             static_cast<int32_t>(text.size());
              }),
              0);
}

void lay_registered(const std::string &text) {
    write_file(kFactoryLive, "live");
    ASSERT_EQ(in_child([] {
                  return register_items("md", {item_cfg(kFactoryLive.c_str(), JX_PROTECT_F)});
              }),
              0);
    write_through_library("a", text);
}

namespace {

// The emulator's words (in cross builds), the program and its arguments.
GStrv argv_of(const char *program, const std::vector<std::string> &args) {
    GPtrArray *words = g_ptr_array_new();
#ifdef JAXEL_TOOL_EMULATOR
    g_auto(GStrv) emulator = g_strsplit(JAXEL_TOOL_EMULATOR, " ", -1);
    for (gchar **word = emulator; *word != nullptr; ++word)
        g_ptr_array_add(words, g_strdup(*word));
#endif
    g_ptr_array_add(words, g_strdup(program));
    for (const std::string &arg : args)
        g_ptr_array_add(words, g_strdup(arg.c_str()));
    g_ptr_array_add(words, nullptr);
    return reinterpret_cast<GStrv>(g_ptr_array_free(words, FALSE));
}

}  // namespace

int start_tool(const char *program, const std::vector<std::string> &args) {
    g_auto(GStrv) argv = argv_of(program, args);
    GPid pid = 0;
    return g_spawn_async(nullptr, argv, nullptr,
                         static_cast<GSpawnFlags>(G_SPAWN_DO_NOT_REAP_CHILD | G_SPAWN_SEARCH_PATH),
                         nullptr, nullptr, &pid, nullptr)
               ? pid
               : 0;
}

ToolRun run_tool(const char *program, const std::vector<std::string> &args) {
    g_auto(GStrv) argv = argv_of(program, args);
    ToolRun run;
    g_autofree gchar *out = nullptr;
    int status = 0;
    if (g_spawn_sync(nullptr, argv, nullptr,
                     static_cast<GSpawnFlags>(G_SPAWN_STDERR_TO_DEV_NULL | G_SPAWN_SEARCH_PATH),
                     nullptr, nullptr, &out, nullptr, &status, nullptr)) {
        run.exit = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.out = out;
    }
    return run;
}

std::map<std::string, std::string> all_files() {
    std::map<std::string, std::string> files;
    std::error_code err;  // a missing directory lists nothing
    for (const char *dir : {"/opt/ulx/pram", "/opt/ulx/save", "/opt/ulx/pflash"})
        for (const auto &entry : std::filesystem::directory_iterator(dir, err))
            files[entry.path().string()] = read_file(entry.path().string());
    return files;
}

}  // namespace jx::test
