/* A small service process that keeps its files through libjaxel. Run it inside
 * examples/run-in-sandbox.sh: it works on /opt/ulx, which the sandbox provides. */
#include <stdio.h>
#include <string.h>
#include <syslog.h>

#include <jaxel.h>

static int check(const char *what, int32_t rc) {
    printf("%-44s %s (%d)\n", what, rc == 0 ? "ok" : "FAILED", (int)rc);
    return rc == 0 ? 0 : 1;
}

static int show_file(const char *path) {
    char text[128] = {0};
    FILE *f = fopen(path, "rb");
    size_t n;
    if (f == NULL) {
        printf("  %s: missing\n", path);
        return 1;
    }
    n = fread(text, 1, sizeof text - 1, f);
    fclose(f);
    printf("  %s holds %u bytes: \"%s\"\n", path, (unsigned)n, text);
    return 0;
}

int main(void) {
    static const char settings[] = "mtu=1500\nspeed=auto\n";
    static const char flash_note[] = "factory serial 0042\n";
    char path[256];
    int failures = 0;

    /* The library logs failures through the process's own syslog settings;
     * LOG_PERROR puts them on stderr as well for the demo. */
    openlog("jaxel-demo", LOG_PERROR | LOG_PID, LOG_LOCAL0);

    failures += check("name the module", jx_set_module_name("demo"));
    printf("module name: %s\n", jx_get_module_name());

    jx_get_file_path("net.conf", jx_get_module_name(), 1, path, sizeof path);
    failures += check("durable write to the save area", jx_set_content(path, settings, sizeof settings - 1));
    failures += show_file(path);

    jx_get_file_path("serial", jx_get_module_name(), 3, path, sizeof path);
    failures += check("durable write through the flash driver",
                      jx_set_content(path, flash_note, sizeof flash_note - 1));
    failures += show_file(path);

    jx_wirte_cnt_set(0, 3);
    printf("write counters: external %llu, log items %llu, save-area bytes %llu\n",
           (unsigned long long)jx_wirte_cnt_get(0), (unsigned long long)jx_wirte_cnt_get(1),
           (unsigned long long)jx_wirte_cnt_get(2));

    printf("a refused write (no path) reports %d\n", (int)jx_set_content(NULL, settings, 1));
    failures += check("final stop", jx_exit());
    closelog();
    printf("%s\n", failures == 0 ? "demo finished: all steps ok" : "demo finished with failures");
    return failures == 0 ? 0 : 1;
}
