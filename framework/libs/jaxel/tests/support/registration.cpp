#include "support/registration.h"

#include <cstdio>
#include <fcntl.h>
#include <fstream>

#include <glib.h>

#include "frame/locks.h"
#include "frame/module_list.h"

namespace jx::test {
namespace {

const char kTable[] = "/opt/ulx/pram/fsync_reg.ini";

int count_groups() {
    std::ifstream in(kTable);
    std::string line;
    int n = 0;
    while (std::getline(in, line)) {
        n += !line.empty() && line[0] == '[';
    }
    return n;
}

std::string tier_path(int tier, const char *module, const char *short_name) {
    char buf[256];
    jx_get_file_path(short_name, module, static_cast<uint32_t>(tier), buf, sizeof buf);
    return buf;
}

std::string group_text(const char *module, const JxItemCfg &cfg, int number, std::string &src) {
    const std::string t0 = tier_path(0, module, cfg.short_name);
    const std::string t1 = tier_path(1, module, cfg.short_name);
    const bool chosen = cfg.path != nullptr && cfg.path[0] != '\0';
    const std::string dst = chosen ? cfg.path : t1;
    const std::string n = std::to_string(number);
    src = t0;
    switch (cfg.protect_mode) {
    case JX_PROTECT_R:
        return "[R" + n + "]\ndst=" + t0 + ".bak\nsrc=" + t0 + "\nbak=" + t0 + ".bak\ncrc=" + t0 +
               ".bak.sha256\nbakcrc=" + t0 + ".bak.sha256\n";
    case JX_PROTECT_C: return "[C" + n + "]\ndst=" + dst + "\nsrc=" + t0 + "\n";
    case JX_PROTECT_E:
    case JX_PROTECT_S:
        return std::string("[") + (cfg.protect_mode == JX_PROTECT_E ? "E" : "S") + n +
               "]\ndst=" + dst + "\nsrc=" + t0 + "\nbak=" + t1 + ".bak\ncrc=" + t1 +
               ".sha256\nbakcrc=" + t1 + ".bak.sha256\n";
    case JX_PROTECT_P:
        return "[P" + n + "]\ndst=" + (chosen ? cfg.path : tier_path(3, module, cfg.short_name)) +
               "\nsrc=" + t0 + "\n";
    default: src = cfg.short_name; return "[F" + n + "]\nsrc=" + src + "\n";
    }
}

}  // namespace

void open_reg_table() {
    if (jx::reg_table_fd() == -1) {
        jx::set_reg_table_fd(open(kTable, O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    }
}

std::string register_for_test(const char *module, const JxItemCfg &cfg) {
    open_reg_table();
    std::string src;
    const std::string group = group_text(module, cfg, count_groups() + 1, src);
    std::ofstream(kTable, std::ios::app)
        << group << "privilege=" << static_cast<unsigned long long>(cfg.privilege) << "\n";

    auto *item = static_cast<JxModuleItem *>(g_malloc0(sizeof(JxModuleItem)));
    g_strlcpy(item->short_name, cfg.short_name, sizeof item->short_name);
    item->protect_mode = cfg.protect_mode;
    item->package_size = cfg.package_size;
    item->callback = cfg.callback;
    item->privilege = cfg.privilege;
    if (cfg.package_path != nullptr) {
        g_strlcpy(item->package_path, cfg.package_path, sizeof item->package_path);
    } else {
        g_snprintf(item->package_path, sizeof item->package_path, "%s.tar.gz",
                   tier_path(1, module, cfg.short_name).c_str());
    }
    jx::jx_append_module_item(item);
    return src;
}

}  // namespace jx::test
