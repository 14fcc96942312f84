#include "support/builders.h"

#include <sys/wait.h>
#include <unistd.h>

#include <glib.h>

namespace jx::test {

JxItemCfg item_cfg(const char *short_name, uint32_t protect_mode, int32_t package_size,
                   const char *path, JxPackageCallback callback) {
    JxItemCfg cfg{};
    cfg.short_name = short_name;
    cfg.path = path;
    cfg.protect_mode = protect_mode;
    cfg.package_size = package_size;
    cfg.callback = callback;
    cfg.privilege = privilege_of(0x640, kTestGroup);
    return cfg;
}

int32_t register_items(const char *module, const std::vector<JxItemCfg> &items) {
    jx_set_module_name(module);
    return jx_init_cfg(items.data(), static_cast<int32_t>(items.size()), module);
}

std::string tier_path(const char *module, const char *short_name, uint32_t tier) {
    char buf[256] = "";
    jx_get_file_path(short_name, module, tier, buf, sizeof buf);
    return buf;
}

Handle open_handle(const char *short_name, const char *mode) {
    return Handle(jx_fopen(short_name, mode), jx_fclose);
}

int32_t write_text(JxFile *handle, const std::string &text) {
    return jx_fwrite(text.data(), 1, static_cast<uint32_t>(text.size()), handle);
}

int in_child(const std::function<int()> &body) {
    const pid_t pid = fork();
    if (pid == 0)
        _exit(body());
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid || !WIFEXITED(status))
        return -1;
    return WEXITSTATUS(status);
}

struct stat stat_of(const std::string &path) {
    struct stat st {};
    (void)stat(path.c_str(), &st);
    return st;
}

std::string access_of(const std::string &path) {
    const struct stat st = stat_of(path);
    g_autofree gchar *text = g_strdup_printf("%o %u:%u", st.st_mode & 07777, st.st_uid, st.st_gid);
    return text;
}

std::string tar(const char *flags, const std::string &package) {
    const char *argv[] = {"tar", flags, package.c_str(), nullptr};
    g_autofree gchar *out = nullptr;
    gint status = -1;
    const bool ran = g_spawn_sync(nullptr, const_cast<gchar **>(argv), nullptr, G_SPAWN_SEARCH_PATH,
                                  nullptr, nullptr, &out, nullptr, &status, nullptr);
    return ran && status == 0 ? out : "<failed>";
}

}  // namespace jx::test
