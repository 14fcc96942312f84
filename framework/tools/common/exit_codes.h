// Exit bits of the tools, OR'ed as fsck does.
#pragma once

namespace jx::tools {

inline constexpr int kExitClean = 0;
inline constexpr int kExitFixed = 1;
inline constexpr int kExitProblems = 4;
inline constexpr int kExitOperational = 8;
inline constexpr int kExitUsage = 16;

}  // namespace jx::tools
