#include "integrity/digest.h"

#include "frame/hex.h"
#include "frame/sha256.h"

namespace jx {

bool sha256_hex(const void *data, std::size_t len, char out[kSha256HexSize]) noexcept {
    static constexpr unsigned char kNoBytes = 0;
    if (data == nullptr) {
        if (len != 0) {
            return false;
        }
        data = &kNoBytes;
    }
    uint8_t md[kSha256Size];
    if (!sha256(data, len, md)) {
        return false;
    }
    to_hex(md, kSha256Size, out);
    out[kSha256HexLen] = '\0';
    return true;
}

}  // namespace jx
