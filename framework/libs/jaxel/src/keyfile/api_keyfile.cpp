// The exported calls of the managed key files.
#include "frame/frame.h"
#include "keyfile/keyfile.h"
#include "recovery/recovery.h"

extern "C" GKeyFile *jx_open_key_file(const char *path, int fd, int hold) noexcept {
    return jx::open_key_file(path, fd, hold);
}

extern "C" int32_t jx_close_key_file(GKeyFile *key, int fd, int hold) noexcept {
    // Logged here only: the library's own table opens close a failed open too.
    return key == nullptr ? JX_REFUSE(JX_ERR_PARAM1, "key") : jx::close_key_file(key, fd, hold);
}

extern "C" int32_t jx_writeback_key_file(GKeyFile *key, const char *path) noexcept {
    return jx::writeback_key_file(key, path);
}

extern "C" int jx_key_file_string_valid(const char *s) noexcept {
    return s == nullptr ? JX_REFUSE(0, "s") : jx::key_file_string_valid(s);
}
