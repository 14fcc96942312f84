// The exported calls of file maintenance, privileges included.
#include "integrity/integrity.h"
#include "maintenance/maintenance.h"

extern "C" uint32_t jx_create_privilege(uint32_t code) noexcept {
    return jx::create_privilege(code);
}

extern "C" void jx_set_privilege(const char *path, JxPrivilege privilege) noexcept {
    jx::set_privilege(path, privilege);
}

extern "C" int32_t jx_sync_privilege(const char *reference, const char *target) noexcept {
    // Logged here only: recovery calls the same check with its own messages.
    if (reference == nullptr || target == nullptr) {
        return reference == nullptr ? JX_REFUSE(JX_ERR_PARAM1, "reference")
                                    : JX_REFUSE(JX_ERR_PARAM2, "target");
    }
    return jx::sync_privilege(reference, target);
}

extern "C" int32_t jx_clear_module_file(const char *short_name, const char *module_name) noexcept {
    return jx::clear_module_file(short_name, module_name);
}

extern "C" int32_t jx_clear_file(const char *short_name) noexcept {
    return jx::clear_file(short_name);
}

extern "C" int32_t jx_clear_log_file(const JxItemCfg *descriptor) noexcept {
    return jx::clear_log_file(descriptor);
}

extern "C" int32_t jx_fputc(int c, JxFile *stream) noexcept { return jx::put_char(c, stream); }

extern "C" int32_t jx_insert(const void *data, uint32_t length, uint32_t offset,
                             JxFile *stream) noexcept {
    return jx::insert_bytes(data, length, offset, stream);
}

extern "C" int32_t jx_delete(uint32_t count, uint32_t offset, JxFile *stream) noexcept {
    return jx::delete_bytes(count, offset, stream);
}

extern "C" int32_t jx_modify(const void *data, uint32_t length, uint32_t offset,
                             uint32_t replaced_length, JxFile *stream) noexcept {
    return jx::modify_bytes(data, length, offset, replaced_length, stream);
}
