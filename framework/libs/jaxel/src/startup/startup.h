// What start-up shares: the load-configuration flag's words, the factory
// recovery point, and the restore from it.
#pragma once

namespace jx {

// The flag's two words, each stored and compared with its terminating zero.
inline constexpr char kFactoryWord[8] = "Factory";
inline constexpr char kClearedWord[8] = "Cleared";

inline constexpr char kRecoverPointPath[] = "/opt/ulx/save/.factory_recover_point.tar.gz";
inline constexpr char kRecoverPointCrcPath[] = "/opt/ulx/save/.factory_recover_point_crc.tar.gz";

}  // namespace jx

// Restores configuration from the factory recovery point through the stash;
// runs under the registration-table lock and reports only through the log.
void jx_recover_factory_S_cfg() noexcept;  // NOLINT(readability-identifier-naming)
