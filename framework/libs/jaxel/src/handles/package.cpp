#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
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
constexpr char kStagingKind[] = "tar.gz";

// Both packagers flush the stream first and name themselves in the line.
bool flush_before_package(const JxFile *stream, const char *flush_call) noexcept {
    return JX_FLUSH_AND_SYNC(stream->fd, stream->file_name, {flush_call, nullptr}, true) == 0;
}

// A link, FIFO or hard-linked file at the package path would carry the package
// to a file the library does not own.
bool package_path_refused(const char *package_path, const char *package_name) noexcept {
    if (!is_odd_node(package_path)) {
        return false;
    }
    JX_LOG("%s refused: not a regular file of one link.", package_name);
    return true;
}

// The archive is built aside; one record then carries it to the package
// together with the emptied file and side file, so a cut leaves either the old
// file with the old package or the empty file with the new one.
int commit_roll_over(const JxFile *stream, const Staging &staging,
                     const char *package_path) noexcept {
    Content package;
    if (!read_whole_file_logged(staging.path(), package)) {
        return -1;
    }
    const Path side = side_file_of(stream->file_path);
    char digest[kSha256HexSize];
    Transaction transaction;
    transaction.write(stream->file_path, "", 0, false);
    transaction.write(package_path, package.data.get(), package.len, true);
    if (::access(side.c_str(), F_OK) == 0 && sha256_hex("", 0, digest)) {
        transaction.write(side.c_str(), digest, kChecksumFileSize, false);
    }
    if (transaction.commit() != 0) {
        JX_LOG_ERRNO_SPACED("ftruncate", base_name(stream->file_path));
        return -1;
    }
    return 0;
}

// The package is read-only once it exists. A failed chmod returns its own raw
// result (-1), not a library code; callers compare against it.
int seal_package(const char *package_path) noexcept {
    const int rc = change_mode_of(package_path, kPackageMode);
    if (rc != 0) {
        const int e = errno;
        JX_LOG("chmod(%s) failed: ret %d errno %d(%s)", base_name(package_path), rc, e,
               g_strerror(e));
    }
    return rc;
}

// After the commit: the package sealed, the emptied file rewound, the callback told.
int32_t finish_roll_over(JxFile *stream, const char *package_path) noexcept {
    const int rc = seal_package(package_path);
    if (rc != 0) {
        return rc;
    }
    if (io().fseek(stream->fd, 0, SEEK_SET) != 0) {
        JX_LOG_ERRNO_SPACED("fseek", base_name(stream->file_path));
        return JX_ERR_PACKAGE;
    }
    if (stream->item->callback != nullptr) {
        stream->item->callback(stream->item);
    }
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

int32_t jx_package(JxFile *stream) noexcept {
    const Path package_path = make_path({kPramDir, stream->package_name});
    if (package_path_refused(package_path.c_str(), stream->package_name) ||
        !flush_before_package(stream, "jx_package fflush")) {
        return JX_ERR_PACKAGE;
    }
    const Staging staging(stream->file_path, kStagingKind);
    if (!staging) {
        JX_LOG_ERRNO_SPACED("open", base_name(staging.path()));
        return JX_ERR_PACKAGE;
    }
    const ShellArg archive(staging.path());
    const ShellArg file(stream->file_name);
    char command[kShellCommandSize] = {};
    // A command that does not fit is never run in part.
    if (!archive.fits() || !file.fits() ||
        snprintf_s(command, sizeof command, sizeof command, "cd /opt/ulx/pram/;tar -czf %s %s",
                   archive.c_str(), file.c_str()) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
        return JX_ERR_PACKAGE;
    }
    if (run_shell(command) != 0) {
        JX_LOG("exce cmd failed: %s %d.", command, errno);
        return JX_ERR_PACKAGE;
    }
    if (commit_roll_over(stream, staging, package_path.c_str()) != 0) {
        return JX_ERR_PACKAGE;
    }
    if (sync_privilege(stream->file_path, package_path.c_str()) != 0) {
        JX_LOG("sync privilege failed, file:%s", base_name(stream->file_path));
    }
    return finish_roll_over(stream, package_path.c_str());
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
    const Path package_path = make_path({directory.c_str(), "/", stream->package_name});
    // The command's temporary copy is written by cp, which follows a link.
    const Path copy_path = make_path({directory.c_str(), "/md_so_", stream->file_name});
    if (package_path_refused(package_path.c_str(), stream->package_name) ||
        package_path_refused(copy_path.c_str(), base_name(copy_path.c_str()))) {
        return JX_ERR_PACKAGE;
    }
    const Staging staging(stream->file_path, kStagingKind);
    if (!staging) {
        JX_LOG_ERRNO_SPACED("open", base_name(staging.path()));
        return JX_ERR_PACKAGE;
    }
    const ShellArg dir(directory.c_str());
    const ShellArg file(stream->file_name);
    const ShellArg archive(staging.path());
    char command[kShellCommandSize] = {};
    if (!dir.fits() || !file.fits() || !archive.fits() ||
        snprintf_s(command, sizeof command, sizeof command,
                   "cd %s;cp %s md_so_%s;tar -czf %s md_so_%s;rm -f md_so_%s", dir.c_str(),
                   file.c_str(), file.c_str(), archive.c_str(), file.c_str(), file.c_str()) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
        return JX_ERR_PACKAGE;
    }
    const int rc = run_shell(command);
    if (rc != 0) {
        // The doubled word is part of the line that log watchers match.
        JX_LOG("exce cmd failed failed: %s(%d)", command, rc);
        return JX_ERR_PACKAGE;
    }
    if (commit_roll_over(stream, staging, package_path.c_str()) != 0) {
        return JX_ERR_PACKAGE;
    }
    const int32_t synced = sync_privilege(stream->file_path, package_path.c_str());
    if (synced != 0) {
        JX_LOG("sync privilege %s failed: %d.", base_name(stream->file_path), synced);
        return JX_ERR_PACKAGE;
    }
    return finish_roll_over(stream, package_path.c_str());
}

}  // namespace jx
