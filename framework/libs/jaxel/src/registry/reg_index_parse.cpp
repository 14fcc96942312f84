// Filling and answering the table index. The plain syntax below is the subset
// of key-file syntax in which GKeyFile takes every line as it stands; any other
// table is filled from GKeyFile's own reading of it.
#include <algorithm>
#include <cstring>

#include "frame/frame.h"
#include "registry/registry.h"

namespace jx {
namespace {

constexpr const char *kKeys[] = {"src", "dst", "bak", "crc", "bakcrc", "privilege"};
constexpr std::size_t kPathKeyCount = 5;
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

bool name_char(char c) { return g_ascii_isalnum(c) || c == '_' || c == '-' || c == '.'; }
bool value_char(char c) { return c >= 0x20 && c <= 0x7e && c != '\\'; }

bool plain_name(std::string_view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), name_char);
}

bool plain_value(std::string_view value) {
    return value.empty() || (value.front() != ' ' && value.back() != ' ' &&
                             std::all_of(value.begin(), value.end(), value_char));
}

enum class Line { kComment, kGroup, kKey, kOther };

Line classify(std::string_view line) {
    if (line.empty() || (line[0] == '#' && plain_value(line))) {
        return Line::kComment;
    }
    if (line[0] == '[') {
        const bool group = line.back() == ']' && plain_name(line.substr(1, line.size() - 2));
        return group ? Line::kGroup : Line::kOther;
    }
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) {
        return Line::kOther;
    }
    const bool key = plain_name(line.substr(0, equals)) && plain_value(line.substr(equals + 1));
    return key ? Line::kKey : Line::kOther;
}

// Calls `each` on every line of text; false when text does not end a line.
template <typename Each>
bool for_each_line(std::string_view text, Each &&each) {
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        if (end == std::string_view::npos) {
            return false;
        }
        each(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return true;
}

}  // namespace

void RegIndex::clear() noexcept {
    groups_.clear();
    by_name_.clear();
    current_ = 0;
    valid_ = plain_ = false;
}

bool RegIndex::add_plain_text(std::string_view text) {
    bool in_group = !groups_.empty();
    bool plain = true;
    const bool whole_lines = for_each_line(text, [&](std::string_view line) {
        const Line kind = classify(line);
        plain = plain && kind != Line::kOther && (kind != Line::kKey || in_group);
        in_group = in_group || kind == Line::kGroup;
    });
    if (!whole_lines || !plain) {
        return false;
    }
    for_each_line(text, [this](std::string_view line) { add_line(line); });
    return true;
}

void RegIndex::add_line(std::string_view line) {
    const Line kind = classify(line);
    if (kind == Line::kGroup) {
        const std::string name(line.substr(1, line.size() - 2));
        const auto [entry, added] = by_name_.try_emplace(name, groups_.size());
        if (added) {
            groups_.push_back(RegGroup{name, {}});
        }
        current_ = entry->second;
    } else if (kind == Line::kKey) {
        const std::size_t equals = line.find('=');
        const std::string_view key = line.substr(0, equals);
        for (std::size_t k = 0; k < std::size(kKeys); ++k) {
            if (key == kKeys[k]) {
                groups_[current_].values[k] = std::string(line.substr(equals + 1));
            }
        }
    }
}

void RegIndex::add_key_file(GKeyFile *table) {
    const StrvPtr groups(g_key_file_get_groups(table, nullptr));
    for (gchar **group = groups.get(); *group != nullptr; ++group) {
        RegGroup entry{*group, {}};
        for (std::size_t k = 0; k < std::size(kKeys); ++k) {
            const GPtr<gchar> value(k == kPrivilegeKey
                                        ? g_key_file_get_value(table, *group, kKeys[k], nullptr)
                                        : g_key_file_get_string(table, *group, kKeys[k], nullptr));
            if (value) {
                entry.values[k] = value.get();
            }
        }
        groups_.push_back(std::move(entry));
    }
}

bool RegIndex::find(const char *src, RegItem &out) const noexcept {
    for (const RegGroup &group : groups_) {
        const ProtectMode mode = mode_of_group(group.name);
        if (!group.values[0] || std::strcmp(group.values[0]->c_str(), src) != 0 ||
            mode == JX_PROTECT_INVALID) {
            continue;
        }
        out.protect_mode = mode;
        char(*const fields[kPathKeyCount])[256] = {&out.src, &out.dst, &out.bak, &out.crc,
                                                   &out.bakcrc};
        for (std::size_t k = 0; k < kPathKeyCount; ++k) {
            if (group.values[k]) {
                g_strlcpy(*fields[k], group.values[k]->c_str(), sizeof *fields[k]);
            }
        }
        out.privilege = privilege_of(group.values[kPrivilegeKey]);
        return true;
    }
    return false;
}

bool RegIndex::lists(const char *src, const char *dst) const noexcept {
    return std::any_of(groups_.begin(), groups_.end(), [&](const RegGroup &group) {
        const auto text = [](const std::optional<std::string> &v) {
            return v ? v->c_str() : nullptr;
        };
        return g_strcmp0(text(group.values[0]), src) == 0 ||
               g_strcmp0(text(group.values[1]), dst) == 0;
    });
}

}  // namespace jx
