#include <string>
#include <unordered_set>

#include "registry/registry.h"

namespace jx {

// Later groups naming an already listed src are shadowed, as in a lookup.
std::vector<RegItem> RegIndex::items() const {
    std::vector<RegItem> out;
    std::unordered_set<std::string> seen;
    for (const RegGroup &group : groups_) {
        const std::optional<std::string> &src = group.values[0];
        RegItem item{};
        if (src && !src->empty() && seen.insert(*src).second && find(src->c_str(), item)) {
            out.push_back(item);
        }
    }
    return out;
}

}  // namespace jx
