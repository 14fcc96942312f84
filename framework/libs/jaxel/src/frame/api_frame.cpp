// The exported calls of the frame.
#include "frame/frame.h"

extern "C" int32_t jx_set_module_name(const char *name) noexcept {
    return jx::set_module_name(name);
}

extern "C" const char *jx_get_module_name(void) noexcept { return jx::module_name(); }

extern "C" void jx_file_lock(int fd) noexcept { (void)jx::lock_fd(fd); }

extern "C" void jx_file_unlock(int fd) noexcept { jx::unlock_fd(fd); }

extern "C" int32_t jx_exit(void) noexcept { return jx::stop_library(); }

extern "C" void jx_get_file_path(const char *short_name, const char *module_name, uint32_t tier,
                                 char *buf, uint32_t size) noexcept {
    jx::file_path_of(short_name, module_name, tier, buf, size);
}
