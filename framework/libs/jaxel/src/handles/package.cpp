#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "frame/frame.h"
#include "handles/handle_write.h"
#include "handles/handles.h"
#include "integrity/integrity.h"
#include "journal/journal.h"
#include "safestr.h"

namespace jx {
namespace {

constexpr mode_t kPackageMode = S_IRUSR | S_IRGRP;

// The package must be on storage before its file is emptied, or a power cut
// right after the truncation would lose both.
int32_t make_package_durable(const char *package_path) noexcept {
    const UniqueFd fd(io().open(package_path, O_RDONLY | O_CLOEXEC, 0));
    if (!fd) {
        JX_LOG_ERRNO_SPACED("open", base_name(package_path));
        return JX_ERR_PACKAGE;
    }
    if (io().fsync(fd.get()) != 0) {
        JX_LOG_ERRNO_SPACED("fsync", base_name(package_path));
        return JX_ERR_PACKAGE;
    }
    return sync_parent_directory(package_path) == 0 ? JX_OK : JX_ERR_PACKAGE;
}

// Both packagers flush the stream first and name themselves in the line.
bool flush_before_package(const JxFile *stream, const char *flush_call) noexcept {
    return JX_FLUSH_AND_SYNC(stream->fd, stream->file_name, {flush_call, nullptr}, true) == 0;
}

// The file and, when it has one, its side file are emptied together: a cut
// never leaves an empty file under the old content's digest.
int empty_rolled_file(const char *path) noexcept {
    const Path side = side_file_of(path);
    char digest[kSha256HexSize];
    Transaction transaction;
    transaction.write(path, "", 0, false);
    if (::access(side.c_str(), F_OK) == 0 && sha256_hex("", 0, digest)) {
        transaction.write(side.c_str(), digest, kChecksumFileSize, false);
    }
    return transaction.commit();
}

// The package is read-only once it exists. A failed chmod returns its own raw
// result (-1), not a library code; callers compare against it.
int seal_package(const char *package_path) noexcept {
    const int rc = io().chmod(package_path, kPackageMode);
    if (rc != 0) {
        const int e = errno;
        JX_LOG("chmod(%s) failed: ret %d errno %d(%s)", base_name(package_path), rc, e,
               g_strerror(e));
    }
    return rc;
}

// A log, written straight to its stream, is emptied and rewound right away.
int32_t finish_log_package(JxFile *stream, const char *package_path) noexcept {
    const int rc = seal_package(package_path);
    if (rc != 0) {
        return rc;
    }
    if (empty_rolled_file(stream->file_path) != 0) {
        JX_LOG_ERRNO_SPACED("ftruncate", base_name(stream->file_path));
        return JX_ERR_PACKAGE;
    }
    if (io().fseek(stream->fd, 0, SEEK_SET) != 0) {
        JX_LOG_ERRNO_SPACED("fseek", base_name(stream->file_path));
        return JX_ERR_PACKAGE;
    }
    tell_rolled_over(stream);
    return JX_OK;
}

// The directory part of the log's package path; false when it has no "/".
bool log_package_directory(const JxFile *stream, Path &directory) noexcept {
    const char *package_path = stream->item->package_path;
    const char *slash = std::strrchr(package_path, '/');
    if (slash == nullptr) {
        JX_LOG("file package path err(%s).", base_name(stream->file_path));
        return false;
    }
    // A package path right under "/" keeps "/" rather than an empty directory.
    const std::size_t length =
        std::max<std::size_t>(static_cast<std::size_t>(slash - package_path), 1);
    g_strlcpy(directory.text, package_path, std::min(length + 1, sizeof directory.text));
    return true;
}

}  // namespace

void tell_rolled_over(JxFile *stream) noexcept {
    if (stream->item->callback != nullptr) {
        stream->item->callback(stream->item);
    }
}

int32_t jx_package(JxFile *stream) noexcept {
    const Path target = make_path({kPramDir, stream->package_name});
    if (is_odd_node(target.c_str())) {
        JX_LOG("%s refused: not a regular file of one link.", stream->package_name);
        return JX_ERR_PACKAGE;
    }
    if (!flush_before_package(stream, "jx_package fflush")) {
        return JX_ERR_PACKAGE;
    }
    const ShellArg package(stream->package_name);
    const ShellArg file(stream->file_name);
    char command[kShellCommandSize] = {};
    // A command that does not fit is never run in part.
    if (!package.fits() || !file.fits() ||
        snprintf_s(command, sizeof command, sizeof command, "cd /opt/ulx/pram/;tar -czf %s %s",
                   package.c_str(), file.c_str()) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
        return JX_ERR_PACKAGE;
    }
    if (run_shell(command) != 0) {
        JX_LOG("exce cmd failed: %s %d.", command, errno);
        return JX_ERR_PACKAGE;
    }
    const Path package_path = make_path({kPramDir, stream->package_name});
    if (make_package_durable(package_path.c_str()) != JX_OK) {
        return JX_ERR_PACKAGE;
    }
    if (sync_privilege(stream->file_path, package_path.c_str()) != 0) {
        JX_LOG("sync privilege failed, file:%s", base_name(stream->file_path));
    }
    return seal_package(package_path.c_str());
}

int32_t jx_package_log(JxFile *stream) noexcept {
    if (!flush_before_package(stream, "jx_package_log fflush")) {
        return JX_ERR_PACKAGE;
    }
    JxModuleItem *item = stream->item;
    if (item->package_path[0] == '\0') {
        g_strlcpy(item->package_path, stream->file_path, sizeof item->package_path);
    }
    Path directory;
    if (!log_package_directory(stream, directory)) {
        return JX_ERR_PACKAGE;
    }
    const ShellArg dir(directory.c_str());
    const ShellArg file(stream->file_name);
    const ShellArg package(stream->package_name);
    char command[kShellCommandSize] = {};
    if (!dir.fits() || !file.fits() || !package.fits() ||
        snprintf_s(command, sizeof command, sizeof command,
                   "cd %s;cp %s md_so_%s;tar -czf %s md_so_%s;rm -f md_so_%s", dir.c_str(),
                   file.c_str(), file.c_str(), package.c_str(), file.c_str(), file.c_str()) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
        return JX_ERR_PACKAGE;
    }
    const int rc = run_shell(command);
    if (rc != 0) {
        // The doubled word is part of the line that log watchers match.
        JX_LOG("exce cmd failed failed: %s(%d)", command, rc);
        return JX_ERR_PACKAGE;
    }
    // Unlike the module file's package, a log package is not synced before the
    // log is emptied: callers depend on the log packaging's cost staying as it is.
    const Path package_path = make_path({directory.c_str(), "/", stream->package_name});
    const int32_t synced = sync_privilege(stream->file_path, package_path.c_str());
    if (synced != 0) {
        JX_LOG("sync privilege %s failed: %d.", base_name(stream->file_path), synced);
        return JX_ERR_PACKAGE;
    }
    return finish_log_package(stream, package_path.c_str());
}

}  // namespace jx
