#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include <glib.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "journal/journal.h"
#include "registry/registry.h"
#include "safestr.h"
#include "startup/startup.h"

namespace jx {
namespace {

constexpr char kStashDir[] = "/opt/ulx/pram/.JxCfg";
constexpr std::size_t kStashDirLength = 20;
constexpr std::size_t kStashPathSize = 276;
constexpr std::size_t kCommandSize = 256;
constexpr uint32_t kTableModeCode = 68;

constexpr const char *kPreservedFiles[] = {"User_Roster",         "keep_config.ini",
                                           "keep_def_config.ini", "User_denylist",
                                           "User_verifydata.dat", "User_verifydata_bkp.dat"};

char *const kMkdirArgv[] = {const_cast<char *>("/bin/mkdir"), const_cast<char *>(kStashDir),
                            nullptr, nullptr};

// The saved copy of a file in the stash, by the file's base name; null after
// logging when it does not fit.
GPtr<char> stash_path(const char *file) noexcept {
    GPtr<char> path(static_cast<char *>(g_malloc0(kStashPathSize)));
    const char *base = base_name(file);
    if (strncat_s(path.get(), kStashPathSize, kStashDir, kStashDirLength) != 0 ||
        strncat_s(path.get(), kStashPathSize, "/", 1) != 0 ||
        strncat_s(path.get(), kStashPathSize, base, std::strlen(base)) != 0) {
        JX_LOG("[%s][%d]: strncat_s failed.\n", __FILE__, __LINE__);
        path.reset();
    }
    return path;
}

int32_t unpack(const char *archive) noexcept {
    char command[kCommandSize] = {};
    if (snprintf_s(command, sizeof command, sizeof command, "cp %s %s;cd %s; tar -zxf %s", archive,
                   kStashDir, kStashDir, base_name(archive)) < 0) {
        JX_LOG("snprintf_s failed.\n");
        return JX_ERR_PARAM1;
    }
    if (run_shell(command) != 0) {
        const int e = errno;
        JX_LOG("copy file to path failed. %d (%s)\n", e, g_strerror(e));
        return JX_ERR_COMMAND;
    }
    return JX_OK;
}

// check_crc_file: the saved copy against its saved checksum, compared as
// strings up to the first zero byte.
bool check_crc_file(const char *copy_path, const char *crc_path) noexcept {
    Content copy;
    Content crc;
    GErrorPtr error;
    char digest[kSha256HexSize];
    if (!read_whole_file(copy_path, copy, error)) {
        JX_LOG("[%s]%d %s get contents failed\n", "check_crc_file", __LINE__, copy_path);
        return false;
    }
    if (!read_whole_file(crc_path, crc, error)) {
        JX_LOG("[%s]%d %s get crc contens failed\n", "check_crc_file", __LINE__, crc_path);
        return false;
    }
    if (!sha256_hex(copy.data.get(), copy.len, digest)) {
        JX_LOG("[%s]%d %s compute checksum failed\n", "check_crc_file", __LINE__, copy_path);
        return false;
    }
    return g_strcmp0(digest, crc.data.get()) == 0;
}

void restore_copy(const char *saved, const char *live) noexcept {
    if (live != nullptr && live[0] != '\0') {
        (void)recover_pending(live);
        (void)jx_file_copy(saved, live);
        (void)ram_check(live);
    }
}

// One S group: its saved copy becomes working copy, durable copy and backup.
void restore_group(GKeyFile *table, const char *group) noexcept {
    const GPtr<gchar> src(g_key_file_get_string(table, group, "src", nullptr));
    const GPtr<gchar> crc(src ? g_key_file_get_string(table, group, "crc", nullptr) : nullptr);
    if (!crc) {
        return;
    }
    const GPtr<char> saved = stash_path(src.get());
    const GPtr<char> saved_crc = stash_path(crc.get());
    if (!saved || !saved_crc || ::access(saved_crc.get(), F_OK) != 0) {
        return;
    }
    if (!check_crc_file(saved.get(), saved_crc.get())) {
        JX_LOG("[%s]%d %s check crc failed\n", "jx_recover_cfg_with_check", __LINE__, saved.get());
        return;
    }
    const GPtr<gchar> dst(g_key_file_get_string(table, group, "dst", nullptr));
    const GPtr<gchar> bak(g_key_file_get_string(table, group, "bak", nullptr));
    restore_copy(saved.get(), src.get());
    restore_copy(saved.get(), dst.get());
    restore_copy(saved.get(), bak.get());
}

// jx_recover_cfg_with_check: the S entries of the stashed table, each verified.
int32_t recover_cfg_with_check() noexcept {
    char table_path[kStashPathSize] = {};
    if (snprintf_s(table_path, sizeof table_path, sizeof table_path, "%s/fsync_reg.ini",
                   kStashDir) < 0) {
        JX_LOG("snprintf_s file_name failed\n");
        return JX_ERR_NO_MEMORY;
    }
    const UniqueFd fd(
        io().open(table_path, O_RDWR | O_CREAT | O_CLOEXEC, create_privilege(kTableModeCode)));
    if (!fd) {
        JX_LOG_ERRNO("open ", kRegTableName);
        return JX_ERR_OPEN;
    }
    const TableLock lock(fd.get());
    const KeyFilePtr table(jx_load_key_file(table_path));
    if (!table) {
        return JX_ERR_KEY_FILE;
    }
    const StrvPtr groups(g_key_file_get_groups(table.get(), nullptr));
    for (gchar **group = groups.get(); group != nullptr && *group != nullptr; ++group) {
        if ((*group)[0] == 'S') {
            restore_group(table.get(), *group);
        }
    }
    return JX_OK;
}

// The plain restore: the preserved files, copied back unchecked, in order.
int32_t recover_preserved_files() noexcept {
    for (const char *name : kPreservedFiles) {
        char saved[kCommandSize];
        char live[kCommandSize];
        (void)memset_s(saved, sizeof saved, 0, sizeof saved);
        (void)memset_s(live, sizeof live, 0, sizeof live);
        if (snprintf_s(saved, sizeof saved, sizeof saved, "%s/%s", kStashDir, name) < 0) {
            JX_LOG("snprintf_s file_name failed\n");
            return JX_ERR_COMMAND;
        }
        if (snprintf_s(live, sizeof live, sizeof live, "%s%s", kPramDir, name) < 0) {
            JX_LOG("snprintf_s file_name failed\n");
            return JX_ERR_COMMAND;
        }
        (void)recover_pending(live);
        char *const argv[] = {const_cast<char *>("/bin/cp"), const_cast<char *>("-f"), saved,
                              const_cast<char *>(kPramDir), nullptr};
        const int rc = io().run("/bin/cp", argv);
        if (rc != 0) {
            JX_LOG("recover file: system cmd fail! ret = %d \n", rc);
            return JX_ERR_COMMAND;
        }
        (void)ram_check(live);
    }
    return JX_OK;
}

void restore_from_stash() noexcept {
    const GPtr<char> marker = stash_path("packet_date");
    if (marker && ::access(marker.get(), F_OK) == 0) {
        const int32_t rc = recover_cfg_with_check();
        if (rc != JX_OK) {
            JX_LOG("jx_recover_factory_S_cfg fail! ret %d \n", rc);
        }
    } else if (recover_preserved_files() != JX_OK) {
        JX_LOG("jx_recover_factory_S_cfg without check fail! ret %d \n", JX_ERR_COMMAND);
    }
}

void remove_stash() noexcept {
    char *const argv[] = {const_cast<char *>("/bin/rm"), const_cast<char *>("-Rf"),
                          const_cast<char *>(kStashDir), nullptr};
    if (io().run("/bin/rm", argv) != 0) {
        const int e = errno;
        JX_LOG("clean .JxCfg fail! %d(%s) \n", e, g_strerror(e));
    }
}

}  // namespace

// After a successful mkdir every way out removes the stash again.
void jx_recover_factory_S_cfg() noexcept {
    if (::access(kRecoverPointPath, F_OK) != 0) {
        return;
    }
    if (io().run(kMkdirArgv[0], kMkdirArgv) != 0) {
        JX_LOG("create .JxCfg fail!\n");
        return;
    }
    if (unpack(kRecoverPointPath) == JX_OK &&
        (::access(kRecoverPointCrcPath, F_OK) != 0 || unpack(kRecoverPointCrcPath) == JX_OK)) {
        restore_from_stash();
    }
    remove_stash();
}

}  // namespace jx
