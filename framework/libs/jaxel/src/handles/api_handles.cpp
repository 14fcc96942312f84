// The exported calls of the managed file handles.
#include "handles/handles.h"

extern "C" JxFile *jx_fopen(const char *short_name, const char *mode) noexcept {
    return jx::open_handle(short_name, mode);
}

extern "C" JxFile *jx_fopen_file(const char *short_name, const char *module_name,
                                 const char *mode) noexcept {
    return jx::open_module_file(short_name, module_name, mode);
}

extern "C" void jx_fclose(JxFile *stream) noexcept { jx::close_handle(stream); }

extern "C" int32_t jx_fwrite(const void *ptr, uint32_t size, uint32_t n, JxFile *stream) noexcept {
    return jx::write_handle(ptr, size, n, stream);
}

extern "C" JxFile *jx_fopen_log_file(const JxItemCfg *jx_info, const char *mode) noexcept {
    return jx::open_log_file(jx_info, mode);
}

extern "C" int32_t jx_fwrite_log(const void *ptr, uint32_t size, uint32_t n,
                                 JxFile *stream) noexcept {
    return jx::write_log(ptr, size, n, stream);
}

extern "C" void jx_fclose_log_file(JxFile *stream) noexcept { jx::close_log_file(stream); }

extern "C" int32_t jx_get_package_size(const char *short_name, uint32_t *size) noexcept {
    return jx::package_size_of(short_name, size);
}

extern "C" void jx_flush_file(JxFile *stream) noexcept { jx::flush_file(stream); }
