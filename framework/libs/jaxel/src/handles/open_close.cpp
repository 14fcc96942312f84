#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "frame/frame.h"
#include "handles/handle_write.h"
#include "handles/handles.h"
#include "journal/journal.h"
#include "maintenance/maintenance.h"
#include "recovery/recovery.h"
#include "registry/registry.h"
#include "safestr.h"

namespace jx {
namespace {

constexpr const char *kClearingModes[] = {"w", "w+", "wb", "w+b"};

// A truncating open of an existing file clears it properly first, so its side
// file and packages follow.
bool clears_before_open(const char *path, const char *mode) noexcept {
    if (::access(path, F_OK) != 0) {
        return false;
    }
    for (const char *clearing : kClearingModes) {
        if (std::strcmp(mode, clearing) == 0) {
            return true;
        }
    }
    return false;
}

// False (logged) when a link takes the working copy out of /opt/ulx/ or to a
// path too long for the handle.
bool fill_module_names(JxFile *handle, const char *short_name, const char *module_name) noexcept {
    char unresolved[kPathMax] = {};
    file_path_of(short_name, module_name, JX_TIER_PRAM, unresolved, sizeof unresolved);
    ResolvedPath resolved;
    const char *path = resolved_or_given(unresolved, resolved);
    if (leads_outside(unresolved, path) || !fits(sizeof handle->file_path, {path})) {
        return false;
    }
    g_strlcpy(handle->file_path, path, sizeof handle->file_path);
    if (snprintf_s(handle->file_name, sizeof handle->file_name, sizeof handle->file_name, "%s_%s",
                   module_name, short_name) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
    }
    g_snprintf(handle->package_name, sizeof handle->package_name, "%s_%s.tar.gz", module_name,
               short_name);
    return true;
}

// Checks the freshly opened file against its side file and rebuilds it from
// its durable copy when it fails; false after logging.
bool repaired_if_invalid(const JxFile *handle) noexcept {
    const GPtr<RegItem> record(get_reg_inter_info(handle->file_path));
    const FileOperationLock lock(handle->file_no);
    if (is_ram_file_valid(handle->file_path) == 1) {
        return true;
    }
    const int32_t rc = jx_file_recover_by_name(handle->file_path, record.get());
    if (rc == JX_OK) {
        return true;
    }
    JX_LOG("jx_file_recover_by_name(%s) failed: %d.", base_name(handle->file_path), rc);
    return false;
}

}  // namespace

bool open_mode_allowed(int32_t package_size, const char *mode) noexcept {
    if (package_size == 0 || mode[0] == 'r' || mode[0] == 'a') {
        return true;
    }
    JX_LOG("unsupport mode: %s.", mode);
    return false;
}

JxFile *open_handle(const char *short_name, const char *mode) noexcept {
    return open_module_file(short_name, module_name(), mode);
}

JxFile *open_module_file(const char *short_name, const char *module_name,
                         const char *mode) noexcept {
    if (short_name == nullptr) {
        JX_LOG("input para invalid: short_name.");
        return nullptr;
    }
    if (module_name == nullptr) {
        JX_LOG("input para invalid: module_name.");
        return nullptr;
    }
    if (mode == nullptr) {
        JX_LOG("input para invalid: mode.");
        return nullptr;
    }
    if (const char *refused = refused_module_file(short_name, module_name)) {
        JX_LOG("input para invalid: %s.", refused);
        return nullptr;
    }
    if (g_jx_reg_list == nullptr) {
        JX_LOG("para invalid: g_jx_reg_list.");
        return nullptr;
    }
    JxModuleItem *item = jx_find_module_item(short_name);
    if (item == nullptr) {
        JX_LOG("%s not register.", short_name);
        return nullptr;
    }
    if (!open_mode_allowed(item->package_size, mode)) {
        return nullptr;
    }
    GPtr<JxFile> handle(g_new0(JxFile, 1));
    handle->item = item;
    g_strlcpy(handle->mode, mode, sizeof handle->mode);
    if (!fill_module_names(handle.get(), short_name, module_name)) {
        return nullptr;
    }
    // A call cut short by a crash is finished before anything looks at the file.
    (void)recover_pending(handle->file_path);
    if (clears_before_open(handle->file_path, mode)) {
        const int32_t rc = clear_module_file(short_name, module_name);
        if (rc != JX_OK) {
            JX_LOG("jx_clear_module_file failed: %d.", rc);
            return nullptr;
        }
    }
    if (jx_open_with_privilege(handle.get(), mode) != JX_OK) {
        return nullptr;
    }
    UniqueStream stream(handle->fd);
    if (!repaired_if_invalid(handle.get())) {
        return nullptr;
    }
    (void)stream.release();
    return handle.release();
}

void close_handle(JxFile *stream) noexcept {
    if (stream == nullptr) {
        (void)JX_REFUSE(0, "stream");
        return;
    }
    if (stream->fd != nullptr) {
        (void)io().fclose(stream->fd);
    }
    g_free(stream);
}

}  // namespace jx
