#include <cerrno>
#include <optional>

#include "journal/journal.h"

#include "support/support.h"

namespace {

using namespace jx::test;
using IntegrityTest = SandboxTest;

// The tier follows the path's exact leading characters, with no normalisation:
// f flash driver, s counted save area, p plain file. Only a new file also syncs
// its directory.
TEST_F(IntegrityTest, WholeContentProtectedWritesAndValidity) {
    const std::string content("hello\0world", 11);
    ASSERT_EQ(jx_set_content("/opt/ulx/pram/w", "", 0), 0);  // creates the record folder
    using Tier = std::pair<const char *, char>;
    for (const auto &[path, tier] :
         {Tier{"/opt/ulx/save/a", 's'}, Tier{"/opt/ulx/savex", 'p'}, Tier{"/opt/ulx/pram/a", 'p'},
          Tier{"/opt/ulx/pflash/a", 'f'}, Tier{"/opt/ulx/pflashx", 'p'},
          Tier{"/opt/ulx//pflash/b", 'p'}}) {
        IoFaults faults;
        const uint64_t counted = jx_wirte_cnt_get(2);
        for (const std::string &text : {content, std::string()}) {
            ASSERT_EQ(jx_set_content(path, text.data(), text.size()), 0) << path;
            EXPECT_EQ(read_file(path), text) << path;
        }
        EXPECT_EQ(jx_wirte_cnt_get(2) - counted, tier == 's' ? content.size() : 0u) << path;
        EXPECT_EQ(faults.count(Call::kPflashWrite), tier == 'f' ? 2 : 0) << path;
        // Per write the record, its folder twice and the target; once the new file's folder.
        EXPECT_EQ(faults.count(Call::kFsync), tier == 'f' ? 0 : 9) << path;
    }
    // No room for the record, or it is not synced: the old content stays, nothing
    // is counted and no record is left behind.
    IoFaults faults;
    for (const Call call : {Call::kWrite, Call::kFsync}) {
        write_file("/opt/ulx/save/f", "old");
        faults.fail(call, 1, ENOSPC);
        EXPECT_EQ(jx_set_content("/opt/ulx/save/f", "abc", 3), JX_ERR_WRITE);
        EXPECT_EQ(read_file("/opt/ulx/save/f"), "old");
        EXPECT_FALSE(exists(jx::redo_record_path("/opt/ulx/save/f")));
    }
    EXPECT_EQ(jx_wirte_cnt_get(2), content.size());
    jx_wirte_cnt_set(0, 5);
    jx_wirte_cnt_set(0, UINT32_MAX);
    jx_wirte_cnt_set(3, 10);
    EXPECT_EQ(jx_wirte_cnt_get(0), 5ull + UINT32_MAX);
    EXPECT_EQ(jx_wirte_cnt_get(3), UINT64_MAX);
    // The side file of a protected write holds GLib's digest of the whole content;
    // each is synced (that it goes first is in the ops table).
    ASSERT_EQ(register_items("app", {item_cfg("d", JX_PROTECT_E)}), 0);
    const std::string path = tier_path("app", "d");
    for (const size_t size : {1, 0, 55, 56, 64, (1 << 20) + 1}) {
        const std::string bytes(size, static_cast<char>(size));
        const Handle handle = open_handle("d", "w+");
        const int synced = faults.count(Call::kFsync);
        ASSERT_EQ(write_text(handle.get(), bytes), static_cast<int32_t>(size));
        EXPECT_EQ(read_file(path), bytes) << size;
        EXPECT_EQ(read_file(path + ".sha256"), side_file_text(bytes)) << size;
        EXPECT_EQ(stat_of(path + ".sha256").st_mode & 07777, 0600u) << size;
        // Record, its folder twice, content, side file; the first write also syncs
        // the new side file's directory.
        EXPECT_EQ(faults.count(Call::kFsync) - synced, size == 1 ? 6 : 5) << size;
    }
    // Both tests compare the first 64 characters of the side file with the digest;
    // a working copy without a side file counts as valid, only in persistent RAM.
    const std::string ram = "/opt/ulx/pram/a", digest = sha256_hex("data");
    using Row = std::tuple<std::string, const char *, std::optional<std::string>, int, int>;
    for (const auto &[file, text, side, valid, ram_valid] :
         {Row{ram, "data", side_file_text("data"), 1, 1}, Row{ram, "", side_file_text(""), 1, 1},
          Row{ram, "data", digest + "xyz", 1, 1}, Row{ram, "data", digest.substr(0, 63), 0, 0},
          Row{ram, "data", "", 0, 0}, Row{ram, "data", side_file_text("datA"), 0, 0},
          Row{ram, "data", std::nullopt, 0, 1}, Row{ram, nullptr, side_file_text(""), 0, 0},
          Row{"/opt/ulx/pramx", "data", std::nullopt, 0, 0},
          Row{"/opt/ulx/save/a", "data", side_file_text("data"), 1, 0}}) {
        reset_sandbox();
        text != nullptr ? write_file(file, text) : void();
        side ? write_file(file + ".sha256", *side) : void();
        EXPECT_EQ(is_file_valid(file.c_str(), (file + ".sha256").c_str()), valid)
            << file << side.value_or("none");
        EXPECT_EQ(is_ram_file_valid(file.c_str()), ram_valid) << file << side.value_or("none");
    }
}

}  // namespace
