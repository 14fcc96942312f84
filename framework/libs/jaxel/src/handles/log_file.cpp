#include <cerrno>
#include <cstdio>

#include "frame/frame.h"
#include "handles/handle_write.h"
#include "handles/handles.h"
#include "integrity/integrity.h"
#include "maintenance/maintenance.h"
#include "safestr.h"

namespace jx {
namespace {

const char *or_empty(const char *text) noexcept { return text != nullptr ? text : ""; }

// The handle's own copy of the caller's description; no default package path.
JxModuleItem *make_private_item(const JxItemCfg &info) noexcept {
    auto *item = g_new0(JxModuleItem, 1);
    g_strlcpy(item->short_name, or_empty(info.short_name), sizeof item->short_name);
    item->protect_mode = info.protect_mode;
    item->package_size = info.package_size;
    item->callback = info.callback;
    item->privilege = info.privilege;
    g_strlcpy(item->package_path, or_empty(info.package_path), sizeof item->package_path);
    return item;
}

void fill_log_names(JxFile *handle, const JxItemCfg &info) noexcept {
    const char *short_name = or_empty(info.short_name);
    g_strlcpy(handle->file_path, or_empty(info.path), sizeof handle->file_path);
    if (snprintf_s(handle->file_name, sizeof handle->file_name, sizeof handle->file_name, "%s",
                   short_name) < 0) {
        JX_LOG("[%s][%d]: snprintf_s failed.\n", __FILE__, __LINE__);
    }
    g_snprintf(handle->package_name, sizeof handle->package_name, "%s.tar.gz", short_name);
}

// Log writes go straight to the stream: flushed, counted, never synced. The
// counter grows by items, short counts included, as the statistics expect.
int32_t log_write(const WriteRequest &request) noexcept {
    const std::size_t written = write_items(request);
    (void)JX_FLUSH_AND_SYNC(request.stream->fd, request.stream->file_name,
                            {"jx_fwrite_log fflush", nullptr}, true);
    add_to_write_counter(kCounterLogItems, static_cast<uint32_t>(written));
    return static_cast<int32_t>(written);
}

}  // namespace

JxFile *open_log_file(const JxItemCfg *jx_info, const char *mode) noexcept {
    if (jx_info == nullptr) {
        JX_LOG("input para invalid: jx_info.");
        return nullptr;
    }
    if (mode == nullptr) {
        JX_LOG("input para invalid: mode.");
        return nullptr;
    }
    // The short name names the package beside the file; the path is kept whole.
    if ((jx_info->short_name != nullptr && !valid_name(jx_info->short_name)) ||
        !fits(kPathMax, {jx_info->path}) || !fits(kPathMax, {jx_info->package_path})) {
        JX_LOG("input para invalid: jx_info.");
        return nullptr;
    }
    if (!open_mode_allowed(jx_info->package_size, mode)) {
        return nullptr;
    }
    GPtr<JxModuleItem> item(make_private_item(*jx_info));
    GPtr<JxFile> handle(g_new0(JxFile, 1));
    handle->item = item.get();
    g_strlcpy(handle->mode, mode, sizeof handle->mode);
    fill_log_names(handle.get(), *jx_info);
    // Opened through its links (the stream refuses a link itself); the handle
    // keeps the path it was given.
    ResolvedPath resolved;
    if (jx_open_with_privilege(handle.get(), mode,
                               resolved_or_given(handle->file_path, resolved)) != JX_OK) {
        return nullptr;
    }
    (void)item.release();
    return handle.release();
}

int32_t write_log(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) noexcept {
    return locked_handle_write({ptr, size, n, stream}, jx_package_log, log_write);
}

void close_log_file(JxFile *stream) noexcept {
    if (stream == nullptr) {
        (void)JX_REFUSE(0, "stream");
        return;
    }
    if (stream->fd != nullptr) {
        (void)io().fclose(stream->fd);
        g_free(stream->item);
    }
    g_free(stream);
}

int32_t package_size_of(const char *short_name, uint32_t *size) noexcept {
    if (short_name == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM1, "short_name");
    }
    if (size == nullptr) {
        return JX_REFUSE(JX_ERR_PARAM2, "size");
    }
    const JxModuleItem *item = jx_find_module_item(short_name);
    if (item == nullptr) {
        JX_LOG("%s not register.", short_name);
        return JX_ERR_NOT_REGISTERED;
    }
    *size = static_cast<uint32_t>(item->package_size);
    return JX_OK;
}

}  // namespace jx
