/* libjaxel: durable, checksummed, recoverable files for controller services. */
#ifndef JAXEL_H
#define JAXEL_H

#include <glib.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#define JX_NOEXCEPT noexcept
#else
#define JX_NOEXCEPT
#endif

typedef uint64_t JxPrivilege; /* low 32 bits: mode code; high 32 bits: group id */
typedef uint32_t ProtectMode; /* 0 R, 1 C, 2 E, 3 S, 4 P, 5 F, 6 invalid */

enum {
    JX_PROTECT_R = 0,
    JX_PROTECT_C = 1,
    JX_PROTECT_E = 2,
    JX_PROTECT_S = 3,
    JX_PROTECT_P = 4,
    JX_PROTECT_F = 5,
    JX_PROTECT_INVALID = 6
};

/* Storage tiers of jx_get_file_path. */
enum { JX_TIER_PRAM = 0, JX_TIER_SAVE = 1, JX_TIER_SAVE_ALT = 2, JX_TIER_PFLASH = 3 };

enum {
    JX_OK = 0,
    JX_ERR_PARAM1 = -4000000,
    JX_ERR_PARAM2 = -3999999,
    JX_ERR_PARAM3 = -3999998,
    JX_ERR_PARAM4 = -3999997,
    JX_ERR_PARAM5 = -3999996,
    JX_ERR_STATE = -3999995,
    JX_ERR_KEY_FILE = -3999994,
    JX_ERR_PROTECT_MODE = -3999993,
    JX_ERR_NO_MEMORY = -3999992,
    JX_ERR_NOT_REGISTERED = -3999991,
    JX_ERR_OPEN = -3999989,
    JX_ERR_WRITE = -3999987,
    JX_ERR_READ = -3999986,
    JX_ERR_NOT_FOUND = -3999985,
    JX_ERR_CRC = -3999984,
    JX_ERR_COPY = -3999983,
    JX_ERR_CHECKSUM = -3999982,
    JX_ERR_PACKAGE = -3999979,
    JX_ERR_NO_RECOVER_POINT = -3999977,
    JX_ERR_COMMAND = -3999976,
    JX_ERR_REBOOTING = -3999972,
    JX_ERR_LOAD_REQ = -4999981
};

typedef struct JxModuleItem JxModuleItem;
typedef void (*JxPackageCallback)(JxModuleItem *item);

struct JxModuleItem {
    char short_name[96];
    uint32_t protect_mode;
    int32_t package_size;
    char package_path[256];
    JxPackageCallback callback;
    JxPrivilege privilege;
};

typedef struct JxItemCfg {
    const char *short_name;
    const char *path; /* may be NULL */
    uint32_t protect_mode;
    int32_t package_size;
    JxPackageCallback callback; /* may be NULL */
    const char *package_path;   /* may be NULL */
    JxPrivilege privilege;
    const char *callback_obj;    /* may be NULL */
    const char *callback_method; /* may be NULL */
} JxItemCfg;

typedef struct JxFile {
    FILE *fd; /* the stream, despite the name */
    int32_t file_no;
    char file_path[256];
    char file_name[256];
    char package_name[256];
    char mode[6];
    JxModuleItem *item;
} JxFile;

/* frame */
int32_t jx_set_module_name(const char *name) JX_NOEXCEPT;
const char *jx_get_module_name(void) JX_NOEXCEPT;
void jx_file_lock(int fd) JX_NOEXCEPT;
void jx_file_unlock(int fd) JX_NOEXCEPT;
int32_t jx_exit(void) JX_NOEXCEPT;
void jx_get_file_path(const char *short_name, const char *module_name, uint32_t tier, char *buf,
                      uint32_t size) JX_NOEXCEPT;

/* start-up */
int32_t jx_init(const JxItemCfg *cfg, int32_t count) JX_NOEXCEPT;
int32_t jx_init_cfg(const JxItemCfg *cfg, int32_t count, const char *module_name) JX_NOEXCEPT;
int32_t jx_factory_load_req(uint32_t request) JX_NOEXCEPT;

/* handles */
JxFile *jx_fopen(const char *short_name, const char *mode) JX_NOEXCEPT;
JxFile *jx_fopen_file(const char *short_name, const char *module_name,
                      const char *mode) JX_NOEXCEPT;
void jx_fclose(JxFile *stream) JX_NOEXCEPT;
int32_t jx_fwrite(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) JX_NOEXCEPT;
JxFile *jx_fopen_log_file(const JxItemCfg *jx_info, const char *mode) JX_NOEXCEPT;
int32_t jx_fwrite_log(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) JX_NOEXCEPT;
void jx_fclose_log_file(JxFile *stream) JX_NOEXCEPT;
int32_t jx_get_package_size(const char *short_name, uint32_t *size) JX_NOEXCEPT;
void jx_flush_file(JxFile *stream) JX_NOEXCEPT;

/* maintenance */
uint32_t jx_create_privilege(uint32_t code) JX_NOEXCEPT;
void jx_set_privilege(const char *path, JxPrivilege privilege) JX_NOEXCEPT;
int32_t jx_sync_privilege(const char *reference, const char *target) JX_NOEXCEPT;
int32_t jx_clear_module_file(const char *short_name, const char *module_name) JX_NOEXCEPT;
int32_t jx_clear_file(const char *short_name) JX_NOEXCEPT;
int32_t jx_clear_log_file(const JxItemCfg *descriptor) JX_NOEXCEPT;
int32_t jx_fputc(int c, JxFile *stream) JX_NOEXCEPT;
int32_t jx_insert(const void *data, uint32_t length, uint32_t offset, JxFile *stream) JX_NOEXCEPT;
int32_t jx_delete(uint32_t count, uint32_t offset, JxFile *stream) JX_NOEXCEPT;
int32_t jx_modify(const void *data, uint32_t length, uint32_t offset, uint32_t replaced_length,
                  JxFile *stream) JX_NOEXCEPT;

/* integrity */
int32_t jx_set_content(const char *path, const void *buf, uint32_t len) JX_NOEXCEPT;
void jx_wirte_cnt_set(uint32_t index, uint32_t count) JX_NOEXCEPT;
uint64_t jx_wirte_cnt_get(uint32_t index) JX_NOEXCEPT;
int is_file_valid(const char *path, const char *checksum_path) JX_NOEXCEPT; /* 1 or 0 */
int is_ram_file_valid(const char *path) JX_NOEXCEPT;                        /* 1 or 0 */
void ram_check_update(int mode) JX_NOEXCEPT;
int32_t jx_check_recovery_rambak(const char *path) JX_NOEXCEPT;
int32_t jx_recovery_flash_bak(const char *path) JX_NOEXCEPT;

/* key files */
GKeyFile *jx_open_key_file(const char *path, int fd, int hold) JX_NOEXCEPT;
int32_t jx_close_key_file(GKeyFile *key, int fd, int hold) JX_NOEXCEPT;
int32_t jx_writeback_key_file(GKeyFile *key, const char *path) JX_NOEXCEPT;
int jx_key_file_string_valid(const char *s) JX_NOEXCEPT; /* 1 or 0 */

/* factory restore */
int32_t jx_recover_factory_cfg(const char *directory) JX_NOEXCEPT;

#undef JX_NOEXCEPT
#ifdef __cplusplus
}
#endif

#endif /* JAXEL_H */
