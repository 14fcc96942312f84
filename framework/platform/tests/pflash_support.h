// Helpers shared by the flash driver tests: plain file access beside the
// driver, to plant and inspect what a power cut or another program leaves.
#pragma once

#include <gtest/gtest.h>

#include <fcntl.h>

#include <fstream>
#include <iterator>
#include <string>

#include <glib.h>

#include "pflash.h"
#include "temp_dir.h"

constexpr int kWriteFlags = O_RDWR | O_CREAT | O_SYNC;
constexpr int kReadFlags = O_RDWR | O_SYNC;

inline std::string read_raw(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void write_raw(const std::string &path, const std::string &data) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << data;
}

inline int flash_write(const std::string &path, const std::string &data) {
    void *h = pflash_open(path.c_str(), kWriteFlags);
    if (h == nullptr) {
        return -1;
    }
    const int rc = pflash_write(h, data.data(), static_cast<uint32_t>(data.size()));
    pflash_close(h);
    return rc;
}

// The driver's result; *out gets the content when it is 0.
inline int flash_read(const std::string &path, std::string *out) {
    void *h = pflash_open(path.c_str(), kReadFlags);
    if (h == nullptr) {
        return -1;
    }
    char *buf = nullptr;
    uint32_t len = 0;
    const int rc = pflash_get_contents(h, &buf, &len);
    pflash_close(h);
    if (rc == 0) {
        out->assign(buf, len);
        EXPECT_EQ(buf[len], '\0');
    } else {
        EXPECT_EQ(buf, nullptr);
    }
    g_free(buf);
    return rc;
}

inline std::string slot_path(const TempDir &dir, int index) {
    return dir.file(".data.pf" + std::to_string(index));
}

class PflashTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(dir.ok()); }

    TempDir dir;
    std::string path = dir.file("data");
};
