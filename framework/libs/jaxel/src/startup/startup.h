// Start-up: registration of the module's items, the load-configuration flag,
// the factory recovery point and the restore from it. Uses every layer below.
#pragma once

#include <cstdint>

#include "jaxel.h"

namespace jx {

// The flag's two words, each stored and compared with its terminating zero.
inline constexpr char kFactoryWord[8] = "Factory";
inline constexpr char kClearedWord[8] = "Cleared";

inline constexpr char kRecoverPointPath[] = "/opt/ulx/save/.factory_recover_point.tar.gz";
inline constexpr char kRecoverPointCrcPath[] = "/opt/ulx/save/.factory_recover_point_crc.tar.gz";

int32_t init(const JxItemCfg *cfg, int32_t count) noexcept;
int32_t init_cfg(const JxItemCfg *cfg, int32_t count, const char *module_name) noexcept;
int32_t factory_load_req(uint32_t request) noexcept;
int32_t recover_factory_cfg(const char *directory) noexcept;

// 0 when the module name and every element may be registered; otherwise the
// code of the refused argument (3 for the name, 1 for the array), logged.
int32_t check_config(const JxItemCfg *cfg, int32_t count, const char *module_name) noexcept;

// Registers one configuration element for the module: paths by protect mode,
// the table group (appended unless the file is listed), the list item, and the
// repair of the working copy. 0 or an error code.
int32_t jx_init_item(const JxItemCfg *element, const char *module_name) noexcept;

// Restores configuration from the factory recovery point through the stash;
// runs under the registration-table lock and reports only through the log.
void jx_recover_factory_S_cfg() noexcept;  // NOLINT(readability-identifier-naming)

}  // namespace jx
