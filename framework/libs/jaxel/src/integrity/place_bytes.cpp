#include <algorithm>
#include <cstring>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "safestr.h"

namespace jx {

// Built in the buffer the old content was read into: a second buffer would
// double the memory of a large write.
bool place_bytes(Content &content, uint64_t position, const void *data, uint64_t count) noexcept {
    const auto length = static_cast<uint32_t>(std::max<uint64_t>(content.len, position + count));
    if (length > content.len) {
        auto *grown = static_cast<char *>(g_try_realloc(content.data.get(), length + 1));
        if (grown == nullptr) {
            JX_LOG("g_malloc0 failed.");
            return false;
        }
        (void)content.data.release();
        content.data.reset(grown);
        std::memset(grown + content.len, 0, length + 1 - content.len);
        content.len = length;
    }
    if (count != 0 &&
        memmove_s(content.data.get() + position, content.len - position, data, count) != 0) {
        JX_LOG("memmove_s failed.");
        return false;
    }
    return true;
}

}  // namespace jx
