// The exported calls of start-up and factory restore.
#include "startup/startup.h"

extern "C" int32_t jx_init(const JxItemCfg *cfg, int32_t count) noexcept {
    return jx::init(cfg, count);
}

extern "C" int32_t jx_init_cfg(const JxItemCfg *cfg, int32_t count,
                               const char *module_name) noexcept {
    return jx::init_cfg(cfg, count, module_name);
}

extern "C" int32_t jx_factory_load_req(uint32_t request) noexcept {
    return jx::factory_load_req(request);
}

extern "C" int32_t jx_recover_factory_cfg(const char *directory) noexcept {
    return jx::recover_factory_cfg(directory);
}
