// The recovery decision over random states of one file's four copies: the
// working copy and its side file against the durable copy and its checksum
// file (a persistent-RAM item), or the durable copy against its backup (a save
// item, at times one whose backup is rebuilt from the main copy). Each copy is
// absent, random bytes, or the other copy; each checksum file is absent,
// random bytes, or a copy's digest with random bytes after it. After a run
// that succeeds, a main copy left in place matches its checksum file (when
// both checksum files were there to weigh), and a second run must succeed
// too and change no copy and no recorded digest (a checksum file's bytes
// after its 64 digits may be rewritten). A failed run promises nothing: it
// may leave a pair half written.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <unistd.h>

#include "fuzz_setup.h"
#include "recovery/recovery.h"
#include "support/oracle.h"

namespace {

using Copies = std::array<std::string, 4>;  // main, main checksum, backup, backup checksum
const char kAbsent[] = "(absent)";
constexpr std::size_t kDigestLength = 64;

// Removes the files that the broken-file cleanup names, without a process.
int remove_named_files(const char *, char *const argv[]) {
    for (char *const *path = argv + 2; *path != nullptr; ++path) {
        (void)unlink(*path);
    }
    return 0;
}

std::string draw_copy(FuzzedDataProvider &input, const std::string &other) {
    switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0: return kAbsent;
    case 1: return other;
    default: return input.ConsumeRandomLengthString(64);
    }
}

std::string draw_checksum(FuzzedDataProvider &input, const Copies &copies) {
    switch (input.ConsumeIntegralInRange(0, 2)) {
    case 0: return kAbsent;
    case 1: return input.ConsumeRandomLengthString(80);
    default:
        return jx::test::sha256_hex(copies[input.ConsumeBool() ? 0 : 2]) +
               input.ConsumeRandomLengthString(4);
    }
}

// Paths of the item's four files, in the order main, main checksum, backup,
// backup checksum, the way the engine weighs them for the item's mode.
using Paths = std::array<const char *, 4>;

Paths draw_item(FuzzedDataProvider &input, jx::RegItem &item) {
    const bool pram = input.ConsumeBool();
    const char *backup = input.ConsumeBool() ? "/opt/ulx/save/md_so_f" : "/opt/ulx/save/f1.bak";
    g_strlcpy(item.src, "/opt/ulx/pram/f", sizeof item.src);
    g_strlcpy(item.dst, "/opt/ulx/save/f.bak", sizeof item.dst);
    g_strlcpy(item.crc, "/opt/ulx/save/f.bak.sha256", sizeof item.crc);
    g_snprintf(item.bak, sizeof item.bak, "%s", pram ? "" : backup);
    g_snprintf(item.bakcrc, sizeof item.bakcrc, "%s%s", item.bak, pram ? "" : ".sha256");
    item.protect_mode = pram ? JX_PROTECT_R : JX_PROTECT_S;
    return pram ? Paths{item.src, "/opt/ulx/pram/f.sha256", item.dst, item.crc}
                : Paths{item.dst, item.crc, item.bak, item.bakcrc};
}

void put_copies(const Paths &paths, const Copies &copies) {
    for (std::size_t i = 0; i < paths.size(); ++i) {
        (void)unlink(paths[i]);
        if (copies[i] != kAbsent) {
            jx::test::write_file(paths[i], copies[i]);
        }
    }
}

std::string snapshot(const Paths &paths) {
    std::string all;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const std::string bytes =
            jx::test::exists(paths[i]) ? jx::test::read_file(paths[i]) : kAbsent;
        all += (i % 2 == 0 ? bytes : bytes.substr(0, kDigestLength)) + "|";
    }
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    jx::io().run = remove_named_files;
    return jx::fuzz::enter_sandbox();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    jx::RegItem item{};
    const Paths paths = draw_item(input, item);
    Copies copies;
    copies[0] = draw_copy(input, kAbsent);
    copies[2] = draw_copy(input, copies[0]);
    copies[1] = draw_checksum(input, copies);
    copies[3] = draw_checksum(input, copies);
    put_copies(paths, copies);
    if (jx::jx_recover_dst_file(&item) == JX_OK) {
        const std::string first = snapshot(paths);
        if (copies[1] != kAbsent && copies[3] != kAbsent && jx::test::exists(paths[0])) {
            jx::fuzz::require_equal(jx::test::read_file(paths[1]).substr(0, kDigestLength),
                                    jx::test::sha256_hex(jx::test::read_file(paths[0])));
        }
        jx::fuzz::require_equal(std::to_string(jx::jx_recover_dst_file(&item)), "0");
        jx::fuzz::require_equal(snapshot(paths), first);
    }
    return 0;
}
