// jaxel-syncd [--once] [--debounce-ms=MS] [--max-delay-ms=MS] [--rescan-sec=SEC]
//             [--bytes-per-day=N] [--burst=N] [--config=FILE]
#include <csignal>
#include <cstdio>

#include <glib-unix.h>
#include <glib.h>

#include "exit_codes.h"
#include "notify.h"
#include "service.h"

namespace {

using namespace jx::tools;

struct Daemon {
    Settings settings;
    Service *service = nullptr;
    GMainLoop *loop = nullptr;
    int exit_bits = kExitClean;
};

bool parse(int &argc, char **&argv, Settings &s, bool &once) {
    gboolean once_flag = FALSE;
    gchar *config = nullptr;
    const GOptionEntry entries[] = {
        {"once", 0, 0, G_OPTION_ARG_NONE, &once_flag, "Run one pass and exit", nullptr},
        {"debounce-ms", 0, 0, G_OPTION_ARG_INT, &s.debounce_ms,
         "Quiet time after the last change of a file", "MS"},
        {"max-delay-ms", 0, 0, G_OPTION_ARG_INT, &s.max_delay_ms,
         "Longest delay of a file that keeps changing", "MS"},
        {"rescan-sec", 0, 0, G_OPTION_ARG_INT, &s.rescan_sec, "Full rescan interval", "SEC"},
        {"bytes-per-day", 0, 0, G_OPTION_ARG_INT64, &s.bytes_per_day,
         "Wear budget: bytes a day to the save area and flash (0 unlimited)", "N"},
        {"burst", 0, 0, G_OPTION_ARG_INT64, &s.burst, "Wear budget: largest burst in bytes", "N"},
        {"config", 0, 0, G_OPTION_ARG_FILENAME, &config, "Key file with a [syncd] group", "FILE"},
        {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
    GOptionContext *context = g_option_context_new("- keep durable copies in step");
    g_option_context_add_main_entries(context, entries, nullptr);
    GError *error = nullptr;
    const bool parsed = g_option_context_parse(context, &argc, &argv, &error) != 0;
    g_option_context_free(context);
    if (!parsed) {
        std::fprintf(stderr, "jaxel-syncd: %s\n", error->message);
        g_error_free(error);
    }
    once = once_flag != 0;
    s.config = config != nullptr ? config : "";
    g_free(config);
    return parsed && argc == 1 && load_settings(s);
}

gboolean on_term(gpointer data) {
    auto *daemon = static_cast<Daemon *>(data);
    notify_stopping();
    daemon->exit_bits |= daemon->service->pass(true);
    g_main_loop_quit(daemon->loop);
    return G_SOURCE_REMOVE;
}

gboolean on_hup(gpointer data) {
    auto *daemon = static_cast<Daemon *>(data);
    Settings settings = daemon->settings;
    if (load_settings(settings)) {
        daemon->service->reconfigure(settings);
    }
    (void)daemon->service->reload();
    return G_SOURCE_CONTINUE;
}

gboolean on_rescan(gpointer data) {
    static_cast<Daemon *>(data)->service->mark_all();
    return G_SOURCE_CONTINUE;
}

gboolean on_watchdog(gpointer) {
    notify_watchdog();
    return G_SOURCE_CONTINUE;
}

int run_loop(Daemon &daemon) {
    daemon.loop = g_main_loop_new(nullptr, FALSE);
    g_unix_signal_add(SIGTERM, on_term, &daemon);
    g_unix_signal_add(SIGINT, on_term, &daemon);
    g_unix_signal_add(SIGHUP, on_hup, &daemon);
    g_timeout_add_seconds(static_cast<guint>(daemon.settings.rescan_sec), on_rescan, &daemon);
    if (const unsigned interval = watchdog_interval_ms(); interval > 0) {
        g_timeout_add(interval, on_watchdog, nullptr);
    }
    notify_ready();
    g_main_loop_run(daemon.loop);
    g_main_loop_unref(daemon.loop);
    return daemon.exit_bits & kExitOperational;
}

}  // namespace

int main(int argc, char **argv) {
    Daemon daemon;
    bool once = false;
    if (!parse(argc, argv, daemon.settings, once)) {
        return kExitUsage;
    }
    Service service(daemon.settings);
    daemon.service = &service;
    if (!service.reload()) {
        std::fprintf(stderr, "jaxel-syncd: table unreadable\n");
        return kExitOperational;
    }
    if (once) {
        return service.pass(false);
    }
    return run_loop(daemon);
}
