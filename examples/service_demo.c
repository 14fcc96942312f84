/* A small service process that keeps its files through libjaxel. Run it inside
 * examples/run-in-sandbox.sh: it works on /opt/ulx, which the sandbox provides.
 *
 * It plays a controller's life: the service starts, writes its configuration,
 * and the sync service jaxel-syncd makes the durable copy in the save area; the
 * working copy is lost, then torn, and each next start rebuilds it from the
 * durable copy. Then the service writes, edits and rolls over files, keeps a key
 * file and restores a file to its factory state. Each start-up runs in a fresh
 * process, as on the target. Last it shows what the library keeps: the table,
 * the companions of each file and `jaxelctl status`.
 *
 * The tools are found through the environment: JAXEL_SYNCD and JAXELCTL name
 * their binaries (run-example.sh sets them when the tools are built). Without
 * jaxel-syncd the demo writes the durable copy itself. */
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <jaxel.h>

#define MODULE "demo"
#define NET_CONF "/opt/ulx/pram/demo_net.conf"
#define NET_CONF_DURABLE "/opt/ulx/save/demo_net.conf"
#define EVENTS "/opt/ulx/pram/demo_events.log"
#define EVENTS_PACKAGE "/opt/ulx/pram/demo_events.log.tar.gz"
#define SETTINGS "/opt/ulx/pram/demo_settings.ini"
#define FACTORY_FILE "/opt/ulx/pram/demo_factory.cfg"
#define FACTORY_DIR "/opt/ulx/save/factory"
#define TABLE "/opt/ulx/pram/fsync_reg.ini"

static const char kNetConf[] = "mtu=1500\nspeed=auto\n";
static int g_failures;
static int g_rollovers;

static void on_rollover(JxModuleItem *item) {
    ++g_rollovers;
    printf("  callback: %s was packaged and emptied\n", item->short_name);
}

static const JxItemCfg kFiles[] = {
    {"net.conf", NULL, JX_PROTECT_E, 0, NULL, NULL, 0x644, NULL, NULL},
    {"events.log", NULL, JX_PROTECT_C, 96, on_rollover, NULL, 0x640, NULL, NULL},
    {"settings.ini", NULL, JX_PROTECT_E, 0, NULL, NULL, 0x600, NULL, NULL},
    {FACTORY_FILE, NULL, JX_PROTECT_F, 0, NULL, NULL, 0x644, NULL, NULL},
};

static void check(const char *what, long rc, long expected) {
    printf("%-52s %s (%ld)\n", what, rc == expected ? "ok" : "FAILED", rc);
    g_failures += rc != expected;
}

static void show_copy(const char *path, int valid) {
    char text[160] = {0};
    FILE *f = fopen(path, "rb");
    size_t n;
    if (f == NULL) {
        printf("  %s: missing\n", path);
        return;
    }
    n = fread(text, 1, sizeof text - 1, f);
    (void)fclose(f);
    printf("  %s (%u bytes, valid %d): %s\n", path, (unsigned)n, valid, text);
}

/* A working copy, checked against its side file. */
static void show(const char *path) { show_copy(path, is_ram_file_valid(path)); }

static void put_file(const char *path, const char *text) {
    FILE *f = fopen(path, "wb");
    if (f == NULL || fputs(text, f) < 0 || fclose(f) != 0) {
        printf("cannot write %s\n", path);
        ++g_failures;
    }
}

static int start_up(void) {
    return (int)jx_init(kFiles, (int32_t)(sizeof kFiles / sizeof kFiles[0]));
}

/* Runs a program with up to two arguments (NULL ends them early) and returns its
 * exit code, or -1 when it did not exit. */
static int run(const char *program, const char *arg1, const char *arg2) {
    pid_t pid;
    int status = 0;
    (void)fflush(stdout);
    pid = fork();
    if (pid == 0) {
        execl(program, program, arg1, arg2, (char *)NULL);
        _exit(127);
    }
    if (pid < 0 || waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/* The binary that the environment variable names, or NULL when that tool is not built. */
static const char *tool(const char *variable) {
    const char *path = getenv(variable);
    return path != NULL && access(path, X_OK) == 0 ? path : NULL;
}

/* One service start in a fresh process, as after a power cycle. */
static void restart(const char *self, const char *why) {
    printf("-- restart: %s\n", why);
    check("start-up in a fresh process", run(self, "start", NULL), 0);
}

static void write_config(void) {
    JxFile *net = jx_fopen("net.conf", "w");
    if (net == NULL) {
        printf("cannot open net.conf\n");
        ++g_failures;
        return;
    }
    check("write the configuration", jx_fwrite(kNetConf, 1, sizeof kNetConf - 1, net),
          (long)(sizeof kNetConf - 1));
    jx_fclose(net);
}

/* One pass of the sync service, when it is built; returns whether it ran. Its exit
 * bits add up like fsck's: 1 copies written, 4 a working copy it would not copy. */
static int sync_pass(const char *what, int expected) {
    const char *syncd = tool("JAXEL_SYNCD");
    if (syncd == NULL) {
        return 0;
    }
    printf("-- jaxel-syncd --once\n");
    check(what, run(syncd, "--once", NULL), expected);
    return 1;
}

static void keep_durable_copy(void) {
    /* settings.ini is registered but not written until later: with no working
     * copy there is nothing to propagate, and that is no problem. */
    if (sync_pass("net.conf copied, settings.ini not written yet", 1)) {
        return;
    }
    printf("-- jaxel-syncd is not built: the demo writes the durable copy itself\n");
    check("durable copy written", jx_set_content(NET_CONF_DURABLE, kNetConf, sizeof kNetConf - 1),
          0);
}

static void write_edit_and_roll_over(void) {
    static const char line[] = "link up on port 1\n";
    JxFile *events = jx_fopen("events.log", "a");
    JxFile *net = jx_fopen("net.conf", "r+");
    int i;
    printf("-- writes, edits and roll-over\n");
    if (events == NULL || net == NULL) {
        printf("cannot open the service's files\n");
        ++g_failures;
        return;
    }
    for (i = 0; i < 8; ++i) {
        if (jx_fwrite(line, 1, sizeof line - 1, events) != (int32_t)(sizeof line - 1)) {
            ++g_failures;
        }
    }
    check("events rolled over at their package size", g_rollovers > 0, 1);
    check("package beside the working copy", access(EVENTS_PACKAGE, F_OK), 0);
    show(EVENTS);

    check("insert a line at the start", jx_insert("# managed\n", 10, 0, net), 0);
    check("replace the mtu value", jx_modify("9000", 4, 14, 4, net), 0);
    check("delete the trailing line", jx_delete(100, 19, net), 0);
    show(NET_CONF);
    jx_fclose(net);
    jx_fclose(events);
}

static void keep_a_key_file(void) {
    int lock = open(SETTINGS, O_RDONLY | O_CREAT, 0600);
    GKeyFile *key;
    printf("-- key file\n");
    key = jx_open_key_file(SETTINGS, lock, 1);
    if (key == NULL) {
        printf("cannot open %s\n", SETTINGS);
        ++g_failures;
        close(lock);
        return;
    }
    g_key_file_set_string(key, "fan", "profile", "quiet");
    check("write the key file back with its side file", jx_writeback_key_file(key, SETTINGS), 0);
    check("close and release the lock", jx_close_key_file(key, lock, 1), 0);
    close(lock);
    show(SETTINGS);
}

static void factory_restore(void) {
    printf("-- factory restore\n");
    put_file(FACTORY_FILE, "fan=turbo\n");
    mkdir(FACTORY_DIR, 0755);
    put_file(FACTORY_DIR "/demo_factory.cfg", "fan=auto\n");
    check("restore F files from the factory copies", jx_recover_factory_cfg(FACTORY_DIR), 0);
    show(FACTORY_FILE);
}

static void show_table(void) {
    char line[320];
    FILE *table = fopen(TABLE, "r");
    printf("-- the table, %s\n", TABLE);
    if (table == NULL) {
        printf("  missing\n");
        ++g_failures;
        return;
    }
    while (fgets(line, sizeof line, table) != NULL) {
        printf("  %s", line);
    }
    (void)fclose(table);
}

static int is_demo_file(const struct dirent *entry) {
    return strncmp(entry->d_name, MODULE "_", sizeof MODULE) == 0;
}

/* The demo's files in one tier with their companions: side files, backups, packages. */
static void list_files(const char *dir) {
    struct dirent **entries = NULL;
    int n = scandir(dir, &entries, is_demo_file, alphasort);
    int i;
    for (i = 0; i < n; ++i) {
        char path[512];
        struct stat st;
        (void)snprintf(path, sizeof path, "%s%s", dir, entries[i]->d_name);
        printf("  %-52s %6ld bytes\n", path, stat(path, &st) == 0 ? (long)st.st_size : -1L);
        free(entries[i]);
    }
    free(entries);
}

static void show_what_is_kept(void) {
    const char *jaxelctl = tool("JAXELCTL");
    show_table();
    printf("-- the files and their companions\n");
    list_files("/opt/ulx/pram/");
    list_files("/opt/ulx/save/");
    if (jaxelctl == NULL) {
        printf("-- jaxelctl is not built\n");
        return;
    }
    printf("-- jaxelctl status\n");
    check("jaxelctl status", run(jaxelctl, "status", NULL), 0);
}

int main(int argc, char **argv) {
    /* The library logs through the process's own syslog settings; LOG_PERROR
     * puts its lines on stderr too. */
    openlog("jaxel-demo", LOG_PERROR | LOG_PID, LOG_LOCAL0);
    jx_set_module_name(MODULE);
    if (argc > 1 && strcmp(argv[1], "start") == 0) {
        return start_up() == 0 ? 0 : 1;
    }

    printf("-- first start: the service registers its files and writes its configuration\n");
    check("this process starts its service", start_up(), 0);
    write_config();
    keep_durable_copy();
    show(NET_CONF);
    show_copy(NET_CONF_DURABLE, is_file_valid(NET_CONF_DURABLE, NET_CONF_DURABLE ".sha256"));

    (void)unlink(NET_CONF);
    printf("-- the working copy is lost\n");
    restart(argv[0], "no working copy");
    show(NET_CONF);

    put_file(NET_CONF, "mtu=15");
    printf("-- power failed in the middle of a write: the working copy is torn\n");
    show(NET_CONF);
    restart(argv[0], "the working copy no longer matches its side file");
    show(NET_CONF);

    write_edit_and_roll_over();
    keep_a_key_file();
    factory_restore();
    (void)sync_pass("net.conf and settings.ini copied", 1);
    show_what_is_kept();
    check("final stop", jx_exit(), 0);
    closelog();
    printf("%s\n", g_failures == 0 ? "demo finished: all steps ok" : "demo finished with failures");
    return g_failures == 0 ? 0 : 1;
}
