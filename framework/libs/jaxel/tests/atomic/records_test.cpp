// A redo record that was cut short or damaged never validates: the next open
// drops it and leaves the file as it was. An intact one is applied.
#include <cstddef>
#include <sys/stat.h>

#include <glib.h>

#include "journal/journal.h"
#include "journal/record.h"
#include "support/builders.h"
#include "support/oracle.h"
#include "support/sandbox.h"

namespace jx::test {
namespace {

const std::string kWork = "/opt/ulx/pram/app_x";

// The record of a protected write of "new": the content and its side file.
std::string record_of_new() {
    const std::string side = side_file_text("new");
    const std::string side_path = kWork + ".sha256";
    const Transaction::Entry entries[] = {
        {true, true, kWork.c_str(), "new", 3, nullptr},
        {true, true, side_path.c_str(), side.data(), 65, nullptr}};
    std::size_t length = 0;
    const GPtr<uint8_t> record = redo::encode(entries, 2, length);
    return record ? std::string(reinterpret_cast<const char *>(record.get()), length) : "";
}

// Recomputes the header digest, so that only the damage itself can give the record away.
void reseal(std::string &record) {
    const std::size_t table = 2 * sizeof(redo::Entry);
    GChecksum *sum = g_checksum_new(G_CHECKSUM_SHA256);
    g_checksum_update(sum, reinterpret_cast<const guchar *>(record.data()),
                      offsetof(redo::Header, digest));
    g_checksum_update(sum, reinterpret_cast<const guchar *>(record.data()) + sizeof(redo::Header),
                      table);
    gsize size = redo::kDigestSize;
    g_checksum_get_digest(sum, reinterpret_cast<guint8 *>(&record[offsetof(redo::Header, digest)]),
                          &size);
    g_checksum_free(sum);
}

using DamagedRecord = SandboxTest;

TEST_F(DamagedRecord, IsDroppedAndTheFileLeftAlone) {
    const std::pair<const char *, void (*)(std::string &)> rows[] = {
        {"intact", [](std::string &r) { reseal(r); }},
        {"empty", [](std::string &r) { r.clear(); }},
        {"one byte short", [](std::string &r) { r.pop_back(); }},
        {"wrong magic", [](std::string &r) { r[0] ^= 1, reseal(r); }},
        {"wrong version",
         [](std::string &r) { r[offsetof(redo::Header, version)] ^= 2, reseal(r); }},
        {"bad header digest", [](std::string &r) { r[offsetof(redo::Header, digest)] ^= 1; }},
        {"bad data digest", [](std::string &r) { r.back() ^= 1; }},
        {"trailing bytes", [](std::string &r) { r += "x"; }},
    };
    for (const auto &[damage, apply] : rows) {
        reset_sandbox();
        std::string record = record_of_new();
        ASSERT_FALSE(record.empty());
        apply(record);
        const std::string path = redo_record_path(kWork.c_str());
        EXPECT_EQ(in_child([&] {
                      const Handle setup = register_items("app", {item_cfg("x", JX_PROTECT_E)})
                                               ? Handle(nullptr, jx_fclose)
                                               : open_handle("x", "w");
                      if (!setup || write_text(setup.get(), "old") != 3) {
                          return 1;
                      }
                      (void)mkdir(path.substr(0, path.rfind('/')).c_str(), 0700);
                      write_file(path, record);
                      return open_handle("x", "r") ? 0 : 2;
                  }),
                  0)
            << damage;
        const std::string want = damage == std::string("intact") ? "new" : "old";
        EXPECT_EQ(read_file(kWork), want) << damage;
        EXPECT_EQ(read_file(kWork + ".sha256"), side_file_text(want)) << damage;
        EXPECT_FALSE(exists(path)) << damage;
    }
}

}  // namespace
}  // namespace jx::test
