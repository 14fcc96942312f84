#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

#include <glib.h>

#include "pflash.h"

namespace {

using Text = const std::string &;
const std::string kOld = "old", kNew("new\0content", 11);

int flash_write(Text path, Text data) {
    void *h = pflash_open(path.c_str(), O_RDWR | O_CREAT);
    const int rc = pflash_write(h, data.data(), static_cast<uint32_t>(data.size()));
    pflash_close(h);
    return rc;
}

// The driver's result, then the content it returned.
std::string flash_read(Text path) {
    void *h = pflash_open(path.c_str(), O_RDWR);
    char *buf = nullptr;
    uint32_t len = 0;
    const int rc = pflash_get_contents(h, &buf, &len);
    pflash_close(h);
    std::string text = std::to_string(rc) + ":" + (buf != nullptr ? std::string(buf, len) : "");
    g_free(buf);
    return text;
}

// A write goes to the slot without the newest valid record, then to the file. Columns: the cut
// (after "old" then kNew were written), the read before recovery, the content after it.
const std::tuple<void (*)(Text path, Text newest_slot), std::string, std::string> kTorn[] = {
    {[](Text path, Text) { (void)truncate(path.c_str(), 4); }, "-3008:", kNew},
    {[](Text path, Text) { std::ofstream(path) << "new_content"; }, "-3008:", kNew},
    {[](Text path, Text) { (void)unlink(path.c_str()); }, "-3008:", kNew},
    {[](Text path, Text slot) {  // the newest record torn before the file was written
         (void)truncate(slot.c_str(), 40);
         std::ofstream(path) << kOld;
     },
     "0:old", kOld},
};

}  // namespace

TEST(Pflash, TornWritesAreRefusedAndRecoveredFromTheNewestValidRecord) {
    char dir[] = "/tmp/jaxel-pflash-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/data", slot = std::string(dir) + "/.data.pf1";
    for (const auto &[cut, read, recovered] : kTorn) {
        ASSERT_EQ(flash_write(path, kOld) | flash_write(path, kNew), 0);
        EXPECT_EQ(flash_read(path), "0:" + kNew);
        cut(path, slot);
        EXPECT_EQ(flash_read(path), read) << recovered;
        EXPECT_EQ(pflash_recover_file(path.c_str()), 0) << recovered;
        EXPECT_EQ(flash_read(path), "0:" + recovered);
    }
    std::ofstream(path + "2") << "placed by hand";
    EXPECT_EQ(pflash_recover_file((path + "2").c_str()), PFLASH_ERR_NOTHING_TO_RECOVER);
    std::filesystem::remove_all(dir);
}
