#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <glib.h>

#include "pflash.h"

namespace {

const std::string kOld = "old", kNew("new\0content", 11);

int flash_write(const std::string &path, const std::string &data) {
    void *h = pflash_open(path.c_str(), O_RDWR | O_CREAT);
    const int rc = pflash_write(h, data.data(), static_cast<uint32_t>(data.size()));
    pflash_close(h);
    return rc;
}

// The driver's result, then the content it returned.
std::string flash_read(const std::string &path) {
    void *h = pflash_open(path.c_str(), O_RDWR);
    char *buf = nullptr;
    uint32_t len = 0;
    const int rc = pflash_get_contents(h, &buf, &len);
    pflash_close(h);
    std::string text = std::to_string(rc) + ":" + (buf != nullptr ? std::string(buf, len) : "");
    g_free(buf);
    return text;
}

struct TornRow {
    const char *what;
    void (*cut)(const std::string &path, const std::string &newest_slot);
    std::string read, recovered;
};

// A write goes to the slot without the newest valid record, then to the file.
const TornRow kTorn[] = {
    {"file cut short", [](auto &path, auto &) { (void)truncate(path.c_str(), 4); }, "-3008:", kNew},
    {"file bytes changed", [](auto &path, auto &) { std::ofstream(path) << "new_content"; },
     "-3008:", kNew},
    {"file lost", [](auto &path, auto &) { (void)unlink(path.c_str()); }, "-3008:", kNew},
    {"newest record torn before the file was written",
     [](auto &path, auto &slot) {
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
    for (const TornRow &row : kTorn) {
        ASSERT_EQ(flash_write(path, kOld) | flash_write(path, kNew), 0);
        EXPECT_EQ(flash_read(path), "0:" + kNew);
        row.cut(path, slot);
        EXPECT_EQ(flash_read(path), row.read) << row.what;
        EXPECT_EQ(pflash_recover_file(path.c_str()), 0) << row.what;
        EXPECT_EQ(flash_read(path), "0:" + row.recovered) << row.what;
    }
    std::ofstream(path + "2") << "placed by hand";
    EXPECT_EQ(pflash_recover_file((path + "2").c_str()), PFLASH_ERR_NOTHING_TO_RECOVER);
    std::filesystem::remove_all(dir);
}
