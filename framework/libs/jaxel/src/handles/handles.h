// Managed file handles: opening with recovery, protected and plain writes,
// log files, packaging and flushing. Uses the frame, the registry, integrity,
// recovery and maintenance.
#pragma once

#include <cstdint>

#include "jaxel.h"

namespace jx {

JxFile *open_handle(const char *short_name, const char *mode) noexcept;
JxFile *open_module_file(const char *short_name, const char *module_name,
                         const char *mode) noexcept;
void close_handle(JxFile *stream) noexcept;
int32_t write_handle(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) noexcept;
JxFile *open_log_file(const JxItemCfg *jx_info, const char *mode) noexcept;
int32_t write_log(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) noexcept;
void close_log_file(JxFile *stream) noexcept;
int32_t package_size_of(const char *short_name, uint32_t *size) noexcept;
void flush_file(JxFile *stream) noexcept;

}  // namespace jx
