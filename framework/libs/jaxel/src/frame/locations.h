// Directories and fixed file names of the controller's storage.
#pragma once

namespace jx {

inline constexpr const char kUlxDir[] = "/opt/ulx/";
inline constexpr const char kPramDir[] = "/opt/ulx/pram/";
inline constexpr const char kSaveDir[] = "/opt/ulx/save/";
inline constexpr const char kPflashDir[] = "/opt/ulx/pflash/";

inline constexpr const char kRegTablePath[] = "/opt/ulx/pram/fsync_reg.ini";
inline constexpr const char kRegTableName[] = "fsync_reg.ini";
inline constexpr const char kRebootFlagPath[] = "/dev/shm/.Reboot.flag";
inline constexpr const char kLoadCfgFlagPath[] = "/opt/ulx/save/.LoadCfg.flag";

inline constexpr const char kChecksumSuffix[] = ".sha256";
inline constexpr const char kBackupSuffix[] = ".bak";

}  // namespace jx
