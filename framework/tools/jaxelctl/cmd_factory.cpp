// factory DIR: the F files put back from their factory copies in DIR by the
// library's own restore; -n tells for each whether it would be copied or removed.
#include <unistd.h>

#include <fcntl.h>

#include "commands.h"
#include "frame/frame.h"
#include "per_file.h"
#include "startup/startup.h"

namespace jx::tools {
namespace {

bool exists(const char *path) { return ::access(path, F_OK) == 0; }

bool same_content(const char *a, const char *b) {
    gchar *one = nullptr;
    gchar *two = nullptr;
    gsize one_len = 0;
    gsize two_len = 0;
    const bool same = g_file_get_contents(a, &one, &one_len, nullptr) != 0 &&
                      g_file_get_contents(b, &two, &two_len, nullptr) != 0 && one_len == two_len &&
                      memcmp(one, two, one_len) == 0;
    g_free(one);
    g_free(two);
    return same;
}

const char *planned_action(const char *directory, const char *live) {
    const GPtr<gchar> copy(g_build_filename(directory, base_name(live), nullptr));
    if (exists(copy.get())) {
        return same_content(copy.get(), live) ? "none" : "restore";
    }
    return exists(live) ? "remove" : "none";
}

int plan_rows(const CtlOptions &options, const char *directory, Report &report) {
    int bits = kExitClean;
    for_each_file(
        options, {}, report,
        [&](const RegItem &item, Row &row) {
            row.action = planned_action(directory, item.src);
            row.state = examine(item);
            bits |= row.action == std::string("none") ? 0 : 1;
            return kExitClean;
        },
        JX_PROTECT_F);
    return bits;
}

// The library's restore takes the table lock through the process's table descriptor.
int32_t restore(const char *directory) {
    const UniqueFd table(::open(kRegTablePath, O_RDONLY | O_CLOEXEC));
    set_reg_table_fd(table.get());
    const int32_t rc = recover_factory_cfg(directory);
    set_reg_table_fd(-1);
    return rc;
}

}  // namespace

void run_factory(const CtlOptions &options, const Paths &args, Report &report) {
    if (args.size() != 1) {
        return report.fail("factory needs the directory of factory copies", kExitUsage);
    }
    if (refuse_during_reboot(options, report)) {
        return;
    }
    const int changes = plan_rows(options, args[0], report);
    if (report.exit_code != kExitClean || changes == 0) {
        return;
    }
    if (options.dry_run) {
        for (Row &row : report.rows) {
            row.action = row.action == "none" ? row.action : "would-" + row.action;
        }
        report.exit_code |= kExitProblems;
        return;
    }
    if (restore(args[0]) != JX_OK) {
        return report.fail("factory restore failed", kExitOperational | kExitProblems);
    }
    for (Row &row : report.rows) {
        row.state.working = exists(row.path.c_str()) ? CopyState::kOk : CopyState::kMissing;
    }
    report.exit_code |= kExitFixed;
}

}  // namespace jx::tools
