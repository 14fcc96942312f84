// The exported calls of recovery.
#include "recovery/recovery.h"

extern "C" int is_file_valid(const char *path, const char *checksum_path) noexcept {
    if (path == nullptr || checksum_path == nullptr) {
        return JX_REFUSE(0, path == nullptr ? "path" : "checksum_path");
    }
    return jx::is_file_valid(path, checksum_path);
}

extern "C" int is_ram_file_valid(const char *path) noexcept {
    return path == nullptr ? JX_REFUSE(0, "path") : jx::is_ram_file_valid(path);
}

extern "C" void ram_check_update(int mode) noexcept { jx::ram_check_update(mode); }

extern "C" int32_t jx_check_recovery_rambak(const char *path) noexcept {
    return jx::check_recovery_rambak(path);
}

extern "C" int32_t jx_recovery_flash_bak(const char *path) noexcept {
    return jx::recovery_flash_bak(path);
}
