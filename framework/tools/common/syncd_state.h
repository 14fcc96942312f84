// The sync service's state file in the working area: what is pending, when
// each file was last synced and what is left of the wear budget. The service
// writes it, jaxelctl status reads it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace jx::tools {

inline constexpr char kSyncdStatePath[] = "/opt/ulx/pram/.jaxel-syncd.state";
inline constexpr int kSyncdStateSchema = 1;

struct SyncdFile {
    std::string path;
    bool pending = false;
    int64_t last_sync = 0;  // seconds since the epoch, 0 never
};

struct SyncdState {
    int64_t pid = 0;
    int64_t updated = 0;
    uint64_t bytes_per_day = 0;
    uint64_t burst = 0;
    double tokens = 0;
    uint64_t bytes_written = 0;
    std::vector<SyncdFile> files;
};

bool write_syncd_state(const SyncdState &state, const char *path = kSyncdStatePath);
bool read_syncd_state(SyncdState &state, const char *path = kSyncdStatePath);

}  // namespace jx::tools
