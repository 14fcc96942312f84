// The registration table: its record of a file, its lookup and the loading of
// key files. Uses only the frame.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <glib.h>

#include "frame/locations.h"
#include "jaxel.h"

namespace jx {

// One group of the registration table, as a lookup yields it.
struct RegItem {
    char src[256];
    char dst[256];
    char bak[256];
    char crc[256];
    char bakcrc[256];
    ProtectMode protect_mode;
    JxPrivilege privilege;
    const char *callback_obj;     // borrowed; set only by item registration
    const char *callback_method;  // borrowed; set only by item registration
};

// The group letter of a protect mode ('\0' for none).
char group_letter(ProtectMode mode) noexcept;

// Loads any key file; null (after logging why) when it cannot be loaded.
GKeyFile *jx_load_key_file(const char *path) noexcept;

// The table's record of the working file `name`, g_malloc'd for the caller to
// g_free; null when the file is not registered or the table cannot be read.
RegItem *get_reg_inter_info(const char *name) noexcept;

// The text of the table group numbered `number` for record, as registration
// appends it; g_malloc'd for the caller to g_free.
gchar *reg_group_text(const RegItem &record, int number) noexcept;

// The values of one table group as GKeyFile answers for them: the path keys
// as g_key_file_get_string gives them, privilege as its raw value.
struct RegGroup {
    std::string name;
    std::optional<std::string> values[6];  // src, dst, bak, crc, bakcrc, privilege
};

// An index of one table file, equal in its answers to parsing the file whole
// with GKeyFile. It is refreshed only when the file changed: a table that only
// grew at its end is read from its old end on. Tables outside the plain syntax
// that registration writes are indexed through GKeyFile itself.
class RegIndex {
public:
    // False (logged) when GKeyFile cannot load the table.
    bool refresh(const char *path) noexcept;
    // The first group that registers `src` with a valid letter, into `out`.
    bool find(const char *src, RegItem &out) const noexcept;
    // Whether a group names `src` as its src or `dst` as its dst.
    bool lists(const char *src, const char *dst) const noexcept;
    std::size_t group_count() const noexcept { return groups_.size(); }
    const std::vector<RegGroup> &groups() const noexcept { return groups_; }
    // The record a lookup would give for each listed file, in table order.
    std::vector<RegItem> items() const;
    // The number for a new group of `letter`: one above the group count, and
    // above every number a group of that letter has, so that a table with gaps
    // or hand-made groups never gets a second group of an existing name.
    uint64_t next_number(char letter) const noexcept;

private:
    bool load_whole(const char *path) noexcept;
    bool read_tail(const char *path) noexcept;
    bool add_plain_text(std::string_view text);
    void add_line(std::string_view line);
    void add_key_file(GKeyFile *table);
    void clear() noexcept;
    void set_value(std::size_t key, std::string_view value);
    void note(std::size_t group, std::size_t key);
    void note_name(const std::string &name);
    bool settle() noexcept;

    std::vector<RegGroup> groups_;
    std::unordered_map<std::string, std::size_t> by_name_;
    std::size_t current_ = 0;
    // What lookups and the registration test ask, kept beside the groups. A
    // plain append updates them; anything else rebuilds them.
    std::unordered_map<std::string, std::size_t> first_by_src_;  // valid letters only
    std::unordered_set<std::string> srcs_;
    std::unordered_set<std::string> dsts_;
    std::unordered_map<char, uint64_t> highest_;  // by group letter
    bool maps_stale_ = false;
    struct stat stamp_ {};
    bool valid_ = false;
    bool plain_ = false;
};

// Refreshes the process's index of the table and hands it to `use`, under a
// mutex of its own (the table lock does not exclude this process's threads).
// False (logged) when the table cannot be loaded.
std::mutex &table_index_mutex() noexcept;
RegIndex &table_index() noexcept;

template <typename Use>
bool with_table_index(Use &&use) noexcept {
    const std::lock_guard<std::mutex> guard(table_index_mutex());
    if (!table_index().refresh(kRegTablePath)) {
        return false;
    }
    use(std::as_const(table_index()));
    return true;
}

}  // namespace jx
