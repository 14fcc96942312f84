// The flash driver's record reader on random slot files. Flags in the first
// byte seal the length and the checksums of the random record, so that the
// reader gets past them; a record it takes must hold the slot's content whole.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>

#include "fuzz_setup.h"

extern "C" {
#include "crc32.h"
#include "record.h"
}

namespace {

constexpr uint8_t kSealLength = 1;
constexpr uint8_t kSealContent = 2;
constexpr uint8_t kSealHeader = 4;

void put32(std::string &bytes, std::size_t at, uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[at + i] = static_cast<char>(value >> (8 * i));
    }
}

std::string sealed(uint8_t seal, std::string slot) {
    if (slot.size() < PF_HEADER_SIZE) {
        return slot;
    }
    const std::size_t length = slot.size() - PF_HEADER_SIZE;
    if ((seal & kSealLength) != 0) {
        put32(slot, 16, static_cast<uint32_t>(length));
    }
    if ((seal & kSealContent) != 0) {
        put32(slot, 20, pf_crc32(0, slot.data() + PF_HEADER_SIZE, length));
    }
    if ((seal & kSealHeader) != 0) {
        put32(slot, 28, pf_crc32(0, slot.data(), 28));
    }
    return slot;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return jx::fuzz::enter_sandbox(); }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const uint8_t seal = input.ConsumeIntegral<uint8_t>();
    const std::string slot = sealed(seal, input.ConsumeRemainingBytesAsString());
    const char *path = "/opt/ulx/pflash/.f.pf0";
    jx::test::write_file(path, slot);
    pf_record record{};
    if (pf_record_load(path, &record) == PF_RECORD_VALID) {
        const std::string content = slot.substr(PF_HEADER_SIZE);
        jx::fuzz::require_equal(std::string(record.data, record.len), content);
        jx::fuzz::require_equal(std::to_string(record.crc),
                                std::to_string(pf_crc32(0, content.data(), content.size())));
        jx::fuzz::require_equal(std::to_string(record.data[record.len]), "0");
    } else if (record.data != nullptr) {
        std::abort();
    }
    pf_record_clear(&record);
    return 0;
}
