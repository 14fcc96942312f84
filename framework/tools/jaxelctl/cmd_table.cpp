// table --check: the table read by GLib's key-file parser under the table
// lock, then its groups checked: letters, numbering, sources and duplicates.
#include <fcntl.h>

#include <set>
#include <string>

#include "commands.h"
#include "frame/frame.h"

namespace jx::tools {
namespace {

bool numbered(const char *group, std::size_t position) {
    const std::string expected = std::to_string(position);
    return std::string_view(group + 1) == expected;
}

void check_group(GKeyFile *table, const char *group, std::size_t position,
                 std::set<std::string> &sources, Report &report) {
    const std::string name = std::string("[") + group + "]: ";
    if (std::string_view("RCESPF").find(group[0]) == std::string_view::npos) {
        report.problems.push_back(name + "unknown protect mode letter");
    }
    if (!numbered(group, position)) {
        report.problems.push_back(name + "numbered out of order, expected " +
                                  std::to_string(position));
    }
    const GPtr<gchar> src(g_key_file_get_string(table, group, "src", nullptr));
    if (!src || src.get()[0] == '\0') {
        report.problems.push_back(name + "no src");
    } else if (!sources.insert(src.get()).second) {
        report.problems.push_back(name + "duplicate src " + src.get());
    }
}

void check_table(GKeyFile *table, Report &report) {
    gsize count = 0;
    const StrvPtr groups(g_key_file_get_groups(table, &count));
    std::set<std::string> sources;
    for (gsize i = 0; i < count; ++i) {
        check_group(table, groups.get()[i], i + 1, sources, report);
    }
}

}  // namespace

void run_table_check(const CtlOptions &options, Report &report) {
    const UniqueFd fd(::open(kRegTablePath, O_RDONLY | O_CLOEXEC));
    if (!fd) {
        return report.fail("table unreadable", kExitOperational);
    }
    if (!lock_fd_within(fd.get(), options.wait_ms())) {
        return report.fail("table lock wait timed out", kExitOperational);
    }
    const KeyFilePtr table(g_key_file_new());
    GError *error = nullptr;
    const bool loaded =
        g_key_file_load_from_file(table.get(), kRegTablePath, G_KEY_FILE_NONE, &error) != 0;
    unlock_fd(fd.get());
    if (!loaded) {
        report.problems.push_back(std::string("damaged: ") + error->message);
        g_error_free(error);
    } else {
        check_table(table.get(), report);
    }
    report.exit_code |= report.problems.empty() ? kExitClean : kExitProblems;
}

}  // namespace jx::tools
