#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "journal/journal.h"
#include "recovery/recovery.h"
#include "safestr.h"
#include "startup/startup.h"

namespace jx {
namespace {

constexpr char kFactoryGroupLetter = 'F';
// Room that the path buffers leave beyond their variable part.
constexpr std::size_t kPathRoom = 256;

GPtr<char> zeroed_buffer(std::size_t size) noexcept {
    GPtr<char> buffer(static_cast<char *>(g_try_malloc0(size)));
    if (!buffer) {
        JX_LOG("[%s][%d]g_malloc0 failed\n", __FILE__, __LINE__);
    }
    return buffer;
}

// The directory, "/" and the live file's last component; null when the buffer
// cannot be had or the path does not fit.
GPtr<char> factory_copy_of(const char *directory, const char *live) noexcept {
    const std::size_t size = std::strlen(directory) + kPathRoom;
    GPtr<char> copy = zeroed_buffer(size);
    if (!copy) {
        return copy;
    }
    const char *const parts[] = {directory, "/", base_name(live)};
    for (const char *part : parts) {
        if (strncat_s(copy.get(), size, part, std::strlen(part)) != 0) {
            JX_LOG("[%s][%d]: strncat_s failed.\n", __FILE__, __LINE__);
            return GPtr<char>();
        }
    }
    return copy;
}

// Null unless the whole command could be formed: a cut command must never run.
GPtr<char> copy_command(const char *copy, const char *destination) noexcept {
    const ShellArg from(copy);
    const ShellArg to(destination);
    const std::size_t size = std::strlen(from.c_str()) + kPathRoom;
    GPtr<char> command = zeroed_buffer(size);
    if (!command) {
        return command;
    }
    if (!from.fits() || !to.fits() ||
        snprintf_s(command.get(), size, size - 1, "cp -f %s %s 2>/dev/null", from.c_str(),
                   to.c_str()) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
        return GPtr<char>();
    }
    return command;
}

// A live file this restore creates may be no more open than its factory copy.
void narrow_mode(const char *copy, const char *live) noexcept {
    struct stat from;
    struct stat to;
    if (::stat(copy, &from) == 0 && ::stat(live, &to) == 0) {
        (void)change_mode_of(live, from.st_mode & to.st_mode & 07777);
    }
}

bool write_live(const char *live, const Content &content) noexcept {
    Transaction transaction;
    transaction.write(live, content.data.get(), content.len, true);
    return transaction.commit() == 0;
}

// The copy is built aside, then one record puts it in place: a cut never
// leaves the live file torn. A command that cannot be formed in full is never
// run. target is the live file with its links resolved, as cp would follow them.
int32_t copy_in_place(const char *copy, const char *live, const char *target) noexcept {
    const Staging staging(target, "copy");
    const GPtr<char> command = copy_command(copy, staging.path());
    if (!command) {
        return JX_OK;
    }
    const bool created = ::access(target, F_OK) != 0;
    Content content;
    GErrorPtr error;
    if (!staging || run_shell(command.get()) != 0 ||
        !read_whole_file(staging.path(), content, error) || !write_live(target, content)) {
        JX_LOG("Copy file(%s) failed.", base_name(live));
        return JX_ERR_COPY;
    }
    if (created) {
        narrow_mode(copy, target);
    }
    return JX_OK;
}

// A file whose paths cannot be formed in full is left as it is, and so is one
// not named by an absolute path: it would be taken from the caller's directory.
int32_t restore_file(const char *directory, const char *live) noexcept {
    if (!valid_absolute_path(live)) {
        JX_LOG("F entry %s skipped: not an absolute path.", base_name(live));
        return JX_OK;
    }
    // A call cut short on the live file is finished first, so it cannot land
    // on top of the restored copy later.
    ResolvedPath resolved;
    const char *target = resolved_or_given(live, resolved);
    (void)recover_pending(target);
    const GPtr<char> copy = factory_copy_of(directory, live);
    if (!copy) {
        return JX_OK;
    }
    if (::access(copy.get(), F_OK) != 0) {
        if (::access(live, F_OK) == 0) {
            Transaction transaction;
            transaction.remove(live);
            (void)transaction.commit();
        }
        return JX_OK;
    }
    return copy_in_place(copy.get(), live, target);
}

}  // namespace

// Every F group of the table, whichever module registered it; the first failed
// copy ends the walk and nothing before it is undone.
int32_t recover_factory_cfg(const char *directory) noexcept {
    if (directory == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "directory");
    }
    RegTableKeyFile table;
    if (!table) {
        return JX_ERR_KEY_FILE;
    }
    int32_t result = JX_OK;
    (void)for_each_group_src(table.get(), kFactoryGroupLetter, [&](const char *live) {
        result = restore_file(directory, live);
        return result == JX_OK;
    });
    if (table.close() != JX_OK) {
        JX_LOG("close key file failed\n");
    }
    return result;
}

}  // namespace jx
