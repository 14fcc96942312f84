#include "startup/startup.h"

void jx_recover_factory_S_cfg() noexcept {}
