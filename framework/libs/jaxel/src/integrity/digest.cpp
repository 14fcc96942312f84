#include "integrity/digest.h"

#include <openssl/evp.h>

#include "frame/hex.h"

namespace jx {

bool sha256_hex(const void *data, std::size_t len, char out[kSha256HexSize]) noexcept {
    static constexpr unsigned char kNoBytes = 0;
    if (data == nullptr) {
        if (len != 0) {
            return false;
        }
        data = &kNoBytes;
    }
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int md_len = 0;
    if (EVP_Digest(data, len, md, &md_len, EVP_sha256(), nullptr) != 1 ||
        static_cast<std::size_t>(md_len) * 2 != kSha256HexLen) {
        return false;
    }
    to_hex(md, md_len, out);
    out[kSha256HexLen] = '\0';
    return true;
}

}  // namespace jx
