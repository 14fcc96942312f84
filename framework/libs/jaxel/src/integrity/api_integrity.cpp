// The exported calls of integrity.
#include "integrity/integrity.h"

// Only the caller's null arguments are logged: recovery hands on missing
// content internally and logs that its own way.
extern "C" int32_t jx_set_content(const char *path, const void *buf, uint32_t len) noexcept {
    if (path == nullptr || buf == nullptr) {
        return path == nullptr ? JX_REFUSE(JX_ERR_PARAM1, "path") : JX_REFUSE(JX_ERR_PARAM2, "buf");
    }
    return jx::set_content(path, buf, len);
}

// "wirte" is the exported spelling that existing callers link against; an
// index that names no counter is ignored.
extern "C" void jx_wirte_cnt_set(uint32_t index, uint32_t count) noexcept {
    jx::add_to_write_counter(index, count);
}

extern "C" uint64_t jx_wirte_cnt_get(uint32_t index) noexcept { return jx::write_counter(index); }
