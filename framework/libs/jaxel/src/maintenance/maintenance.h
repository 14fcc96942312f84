// File maintenance: clearing, character append, in-place edits and the open
// that applies an item's privilege. Uses the frame, the registry and integrity.
#pragma once

#include <cstdint>

#include "integrity/integrity.h"
#include "jaxel.h"

namespace jx {

// Opens handle->file_path with `mode` and applies the privilege of
// handle->item (which must be set) to it again. 0 with handle->fd and
// handle->file_no set, or JX_ERR_STATE with the stream closed and fd null.
// Opens `open_path` (by default the handle's file_path) for the handle.
int32_t jx_open_with_privilege(JxFile *handle, const char *mode,
                               const char *open_path = nullptr) noexcept;

int32_t clear_module_file(const char *short_name, const char *module_name) noexcept;
int32_t clear_file(const char *short_name) noexcept;
int32_t clear_log_file(const JxItemCfg *descriptor) noexcept;

int32_t put_char(int c, JxFile *stream) noexcept;
int32_t insert_bytes(const void *data, uint32_t length, uint32_t offset, JxFile *stream) noexcept;
int32_t delete_bytes(uint32_t count, uint32_t offset, JxFile *stream) noexcept;
int32_t modify_bytes(const void *data, uint32_t length, uint32_t offset, uint32_t replaced_length,
                     JxFile *stream) noexcept;

}  // namespace jx
