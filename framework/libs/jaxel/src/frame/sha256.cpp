#include "frame/sha256.h"

#include <memory>

#include <openssl/evp.h>

namespace jx {
namespace {

const EVP_MD *algorithm() noexcept {
    static EVP_MD *const fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return fetched != nullptr ? fetched : EVP_sha256();
}

struct ContextFree {
    void operator()(EVP_MD_CTX *ctx) const noexcept { EVP_MD_CTX_free(ctx); }
};

EVP_MD_CTX *thread_context() noexcept {
    thread_local const std::unique_ptr<EVP_MD_CTX, ContextFree> ctx(EVP_MD_CTX_new());
    return ctx.get();
}

}  // namespace

bool sha256(std::initializer_list<DigestPart> parts, uint8_t out[kSha256Size]) noexcept {
    EVP_MD_CTX *ctx = thread_context();
    if (ctx == nullptr || EVP_DigestInit_ex(ctx, algorithm(), nullptr) != 1) {
        return false;
    }
    for (const DigestPart &part : parts) {
        if (part.len != 0 && EVP_DigestUpdate(ctx, part.data, part.len) != 1) {
            return false;
        }
    }
    unsigned int len = 0;
    return EVP_DigestFinal_ex(ctx, out, &len) == 1 && len == kSha256Size;
}

}  // namespace jx
