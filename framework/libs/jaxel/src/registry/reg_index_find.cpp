// Answering from the table index, and the maps that make each answer one step.
#include <algorithm>
#include <cstring>

#include "frame/frame.h"
#include "registry/registry.h"

namespace jx {
namespace {

constexpr std::size_t kPathKeyCount = 5;
constexpr std::size_t kSrcKey = 0;
constexpr std::size_t kDstKey = 1;
constexpr std::size_t kPrivilegeKey = 5;

struct ModeLetter {
    char letter;
    ProtectMode mode;
};

constexpr ModeLetter kModeLetters[] = {
    {'R', JX_PROTECT_R}, {'C', JX_PROTECT_C}, {'E', JX_PROTECT_E},
    {'S', JX_PROTECT_S}, {'P', JX_PROTECT_P}, {'F', JX_PROTECT_F},
};

ProtectMode mode_of_group(const std::string &group) {
    for (const ModeLetter &entry : kModeLetters) {
        if (!group.empty() && group[0] == entry.letter) {
            return entry.mode;
        }
    }
    return JX_PROTECT_INVALID;
}

// As g_key_file_get_uint64 reads a value: decimal, all of it, else 0.
uint64_t privilege_of(const std::optional<std::string> &raw) {
    if (!raw || raw->empty()) {
        return 0;
    }
    gchar *end = nullptr;
    const guint64 value = g_ascii_strtoull(raw->c_str(), &end, 10);
    return *end == '\0' ? value : 0;
}

}  // namespace

char group_letter(ProtectMode mode) noexcept {
    for (const ModeLetter &entry : kModeLetters) {
        if (entry.mode == mode) {
            return entry.letter;
        }
    }
    return '\0';
}

// A letter and decimal digits only; a number too long to hold counts as the
// highest possible, so that no new group can follow it.
void RegIndex::note_name(const std::string &name) {
    const auto digit = [](char c) { return g_ascii_isdigit(c); };
    if (name.size() < 2 || !std::all_of(name.begin() + 1, name.end(), digit)) {
        return;
    }
    const uint64_t number =
        name.size() > 19 ? UINT64_MAX : g_ascii_strtoull(name.c_str() + 1, nullptr, 10);
    uint64_t &highest = highest_[name[0]];
    highest = std::max(highest, number);
}

uint64_t RegIndex::next_number(char letter) const noexcept {
    const auto found = highest_.find(letter);
    const uint64_t highest = found == highest_.end() ? 0 : found->second;
    return highest == UINT64_MAX ? highest : std::max<uint64_t>(groups_.size(), highest) + 1;
}

void RegIndex::note(std::size_t group, std::size_t key) {
    const std::string &value = *groups_[group].values[key];
    if (key == kDstKey) {
        dsts_.insert(value);
    } else if (key == kSrcKey) {
        srcs_.insert(value);
        if (mode_of_group(groups_[group].name) != JX_PROTECT_INVALID) {
            first_by_src_.try_emplace(value, group);
        }
    }
}

// Rebuilds the maps when a change was more than a plain append.
bool RegIndex::settle() noexcept {
    if (maps_stale_) {
        first_by_src_.clear();
        srcs_.clear();
        dsts_.clear();
        for (std::size_t group = 0; group < groups_.size(); ++group) {
            for (const std::size_t key : {kSrcKey, kDstKey}) {
                if (groups_[group].values[key]) {
                    note(group, key);
                }
            }
        }
        maps_stale_ = false;
    }
    return true;
}

bool RegIndex::find(const char *src, RegItem &out) const noexcept {
    const auto found = first_by_src_.find(src);
    if (found == first_by_src_.end()) {
        return false;
    }
    const RegGroup &group = groups_[found->second];
    out.protect_mode = mode_of_group(group.name);
    char(*const fields[kPathKeyCount])[256] = {&out.src, &out.dst, &out.bak, &out.crc, &out.bakcrc};
    for (std::size_t k = 0; k < kPathKeyCount; ++k) {
        if (group.values[k]) {
            g_strlcpy(*fields[k], group.values[k]->c_str(), sizeof *fields[k]);
        }
    }
    out.privilege = privilege_of(group.values[kPrivilegeKey]);
    return true;
}

bool RegIndex::lists(const char *src, const char *dst) const noexcept {
    return srcs_.contains(src) || dsts_.contains(dst);
}

}  // namespace jx
