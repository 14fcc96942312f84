// The side-file comparison on random contents and side files: a file is valid
// exactly when its side file, read up to its first zero byte, begins with the
// content's digest. A leading flag puts the true digest in front of the random
// side-file bytes, so that the matching branch is reached too, and the next
// byte may change one of its digits.
#include <fuzzer/FuzzedDataProvider.h>

#include "fuzz_setup.h"
#include "recovery/recovery.h"
#include "support/oracle.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return jx::fuzz::enter_sandbox(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const bool digest_first = input.ConsumeBool();
    const std::size_t changed = input.ConsumeIntegral<uint8_t>();
    const std::string content = input.ConsumeRandomLengthString();
    const std::string digest = jx::test::sha256_hex(content);
    std::string side = (digest_first ? digest : "") + input.ConsumeRemainingBytesAsString();
    if (digest_first && changed < digest.size()) {
        side[changed] = static_cast<char>(side[changed] ^ 1);
    }
    const char *path = "/opt/ulx/pram/f";
    const char *side_path = "/opt/ulx/pram/f.sha256";
    jx::test::write_file(path, content);
    jx::test::write_file(side_path, side);
    const std::string expected = std::string_view(side.c_str()).starts_with(digest) ? "1" : "0";
    jx::fuzz::require_equal(std::to_string(jx::is_file_valid(path, side_path)), expected);
    jx::fuzz::require_equal(std::to_string(jx::is_ram_file_valid(path)), expected);
    return 0;
}
