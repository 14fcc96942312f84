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
constexpr std::size_t kPrivilegeKey = 5;

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
    // GKeyFile refuses a whole file for an Encoding key it does not like.
    const std::string_view name = line.substr(0, equals);
    const bool key = plain_name(name) && name != "Encoding" && plain_value(line.substr(equals + 1));
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
    first_by_src_.clear();
    srcs_.clear();
    dsts_.clear();
    highest_.clear();
    valid_ = plain_ = maps_stale_ = false;
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

void RegIndex::set_value(std::size_t key, std::string_view value) {
    RegGroup &group = groups_[current_];
    const bool appended = !group.values[key] && current_ + 1 == groups_.size();
    group.values[key] = std::string(value);
    if (appended) {
        note(current_, key);
    } else {
        maps_stale_ = true;
    }
}

void RegIndex::add_line(std::string_view line) {
    const Line kind = classify(line);
    if (kind == Line::kGroup) {
        const std::string name(line.substr(1, line.size() - 2));
        const auto [entry, added] = by_name_.try_emplace(name, groups_.size());
        if (added) {
            groups_.push_back(RegGroup{name, {}});
            note_name(name);
        }
        current_ = entry->second;
    } else if (kind == Line::kKey) {
        const std::size_t equals = line.find('=');
        const std::string_view key = line.substr(0, equals);
        for (std::size_t k = 0; k < std::size(kKeys); ++k) {
            if (key == kKeys[k]) {
                set_value(k, line.substr(equals + 1));
            }
        }
    }
}

void RegIndex::add_key_file(GKeyFile *table) {
    const StrvPtr names(g_key_file_get_groups(table, nullptr));
    for (gchar **group = names.get(); *group != nullptr; ++group) {
        RegGroup entry{*group, {}};
        note_name(entry.name);
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
    maps_stale_ = true;
}

}  // namespace jx
