// What the other subsystems use of the managed key files: the registration
// table read through jx_open_key_file, and a walk over its groups.
#pragma once

#include <cstdint>

#include <glib.h>

#include "frame/raii.h"
#include "jaxel.h"

namespace jx {

// The registration table, checked and loaded by jx_open_key_file with the
// table's lock descriptor and hold 0; closed with the same values at the
// latest when the owner goes.
class RegTableKeyFile {
public:
    RegTableKeyFile() noexcept;
    ~RegTableKeyFile();
    RegTableKeyFile(const RegTableKeyFile &) = delete;
    RegTableKeyFile &operator=(const RegTableKeyFile &) = delete;

    GKeyFile *get() const noexcept { return key_; }
    explicit operator bool() const noexcept { return key_ != nullptr; }
    // The result of jx_close_key_file; the table is closed afterwards either way.
    int32_t close() noexcept;

private:
    int fd_;
    GKeyFile *key_;
};

// Calls visit(src) for every group whose name begins with `letter` and that
// holds a non-empty "src", in file order, until visit returns false.
// False when the walk was stopped that way.
template <typename Visit>
bool for_each_group_src(GKeyFile *table, char letter, Visit &&visit) noexcept {
    const StrvPtr groups(g_key_file_get_groups(table, nullptr));
    for (gchar **group = groups.get(); group != nullptr && *group != nullptr; ++group) {
        if ((*group)[0] != letter) {
            continue;
        }
        const GPtr<gchar> src(g_key_file_get_string(table, *group, "src", nullptr));
        if (src && src.get()[0] != '\0' && !visit(src.get())) {
            return false;
        }
    }
    return true;
}

}  // namespace jx
