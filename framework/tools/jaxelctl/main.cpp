// jaxelctl [-q|-v] [--json] [--wait=SEC] COMMAND [-n] [ARG...]
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include <glib.h>

#include "commands.h"
#include "frame/frame.h"

namespace {

using namespace jx::tools;

constexpr char kSummary[] =
    "Commands:\n"
    "  status [PATH...]      state of every copy of the registered files\n"
    "  verify [PATH...]      digest every copy; never writes\n"
    "  repair [-n] [PATH...] run the library's recovery on damaged files\n"
    "  sync [-n] [PATH...]   bring durable copies in step with valid working copies\n"
    "  factory [-n] DIR      restore the F files from the factory copies in DIR\n"
    "  table --check         check the registration table\n"
    "Exit status, OR'ed: 0 clean, 1 fixed, 4 problems left, 8 operational error, 16 usage.";

__attribute__((format(printf, 2, 3))) void log_to_stderr(int, const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vfprintf(stderr, format, args);
    va_end(args);
    std::fputc('\n', stderr);
}

bool parse(int &argc, char **&argv, CtlOptions &o, std::string &error) {
    gboolean quiet = FALSE, verbose = FALSE, json = FALSE, dry_run = FALSE, check = FALSE;
    const GOptionEntry entries[] = {
        {"quiet", 'q', 0, G_OPTION_ARG_NONE, &quiet, "Print only files that need attention",
         nullptr},
        {"verbose", 'v', 0, G_OPTION_ARG_NONE, &verbose, "Show the library's log lines on stderr",
         nullptr},
        {"json", 0, 0, G_OPTION_ARG_NONE, &json, "Print one JSON document", nullptr},
        {"wait", 0, 0, G_OPTION_ARG_INT, &o.wait_sec, "Wait at most SEC seconds for a lock", "SEC"},
        {"dry-run", 'n', 0, G_OPTION_ARG_NONE, &dry_run, "Tell what would be done; change nothing",
         nullptr},
        {"check", 0, 0, G_OPTION_ARG_NONE, &check, "With table: check it", nullptr},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    GOptionContext *context = g_option_context_new("COMMAND [ARG...]");
    g_option_context_set_summary(context, kSummary);
    g_option_context_add_main_entries(context, entries, nullptr);
    GError *failure = nullptr;
    const bool parsed = g_option_context_parse(context, &argc, &argv, &failure) != 0;
    g_option_context_free(context);
    if (!parsed) {
        error = failure->message;
        g_error_free(failure);
        return false;
    }
    o = {quiet != 0, verbose != 0, json != 0, dry_run != 0, check != 0, o.wait_sec};
    return true;
}

bool valid_use(const std::string_view command, const CtlOptions &o, std::size_t args) {
    const bool dry_run_allowed = command == "repair" || command == "sync" || command == "factory";
    if (o.wait_sec < 0 || (o.quiet && o.verbose) || (o.dry_run && !dry_run_allowed)) {
        return false;
    }
    return command == "table" ? o.check && args == 0 : !o.check;
}

void dispatch(const std::string_view command, const CtlOptions &o, const Paths &args,
              Report &report) {
    if (command == "status") {
        run_status(o, args, report);
    } else if (command == "verify") {
        run_verify(o, args, report);
    } else if (command == "repair") {
        run_repair(o, args, report);
    } else if (command == "sync") {
        run_sync(o, args, report);
    } else if (command == "factory") {
        run_factory(o, args, report);
    } else if (command == "table") {
        run_table_check(o, report);
    } else {
        report.fail("unknown command " + std::string(command), kExitUsage);
    }
}

}  // namespace

int main(int argc, char **argv) {
    CtlOptions options;
    std::string error;
    if (!parse(argc, argv, options, error)) {
        std::fprintf(stderr, "jaxelctl: %s\n", error.c_str());
        return kExitUsage;
    }
    if (argc < 2 || !valid_use(argv[1], options, static_cast<std::size_t>(argc - 2))) {
        std::fprintf(stderr, "jaxelctl: usage error; see jaxelctl --help\n");
        return kExitUsage;
    }
    jx::io().syslog = options.verbose ? log_to_stderr : jx::io().syslog;
    Report report;
    report.command = argv[1];
    dispatch(report.command, options, Paths(argv + 2, argv + argc), report);
    print_report(report, options);
    return report.exit_code;
}
