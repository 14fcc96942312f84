#include <cerrno>
#include <cstdint>
#include <memory>
#include <string>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "frame/io.h"
#include "frame/locations.h"
#include "frame/module_list.h"
#include "handles/handle_fixture.h"
#include "jaxel.h"
#include "support/io_faults.h"
#include "support/log_capture.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::item_cfg;
using jx::test::read_file;
using jx::test::side_file_text;
using jx::test::write_file;
using Messages = std::vector<std::string>;

struct HandleCloser {
    void operator()(JxFile *handle) const { jx_fclose(handle); }
};
using Handle = std::unique_ptr<JxFile, HandleCloser>;

class EditTest : public jx::test::HandleTest {
protected:
    // Registers short_name for "app" with content and opens a handle on it
    // ("r+", positioned at the start) as the open operation would.
    Handle open_file(const char *short_name, const std::string &content,
                     uint32_t mode = JX_PROTECT_R) {
        path_ = register_file(item_cfg(short_name, mode));
        write_file(path_, content);
        auto *handle = static_cast<JxFile *>(g_malloc0(sizeof(JxFile)));
        handle->item = jx::jx_find_module_item(short_name);
        g_strlcpy(handle->file_path, path_.c_str(), sizeof handle->file_path);
        g_snprintf(handle->file_name, sizeof handle->file_name, "app_%s", short_name);
        handle->fd = jx::io().fopen(path_.c_str(), "r+");
        handle->file_no = fileno(handle->fd);
        return Handle(handle);
    }

    std::string content() const { return read_file(path_); }
    std::string side_file() const { return read_file(path_ + ".sha256"); }

    std::string path_;
};

TEST_F(EditTest, ArgumentsAreAnsweredByPositionWithoutALine) {
    Handle h = open_file("a", "0123456789");
    JxFile no_stream{};
    jx::test::LogCapture log;

    EXPECT_EQ(jx_insert(nullptr, 0, 0, nullptr), JX_ERR_PARAM1);
    EXPECT_EQ(jx_insert("x", 0, 0, nullptr), JX_ERR_PARAM4);
    EXPECT_EQ(jx_insert("x", 1, 0, &no_stream), JX_ERR_PARAM4);
    EXPECT_EQ(jx_insert("x", 0, 0, h.get()), 0);

    EXPECT_EQ(jx_delete(0, 0, nullptr), 0);
    EXPECT_EQ(jx_delete(1, 0, nullptr), JX_ERR_PARAM3);
    EXPECT_EQ(jx_delete(1, 0, &no_stream), JX_ERR_PARAM3);

    EXPECT_EQ(jx_modify(nullptr, 0, 0, 0, nullptr), JX_ERR_PARAM1);
    EXPECT_EQ(jx_modify("x", 0, 0, 0, nullptr), JX_ERR_PARAM2);
    EXPECT_EQ(jx_modify("x", 1, 0, 0, nullptr), JX_ERR_PARAM4);
    EXPECT_EQ(jx_modify("x", 1, 0, 1, nullptr), JX_ERR_PARAM5);
    EXPECT_EQ(jx_modify("x", 1, 0, 1, &no_stream), JX_ERR_PARAM5);

    EXPECT_EQ(jx_fputc('x', nullptr), JX_ERR_PARAM2);
    EXPECT_EQ(jx_fputc('x', &no_stream), JX_ERR_PARAM2);

    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(content(), "0123456789");
    EXPECT_FALSE(exists(path_ + ".sha256"));
}

TEST_F(EditTest, RebootStopsTheEditsSilentlyButNotFputc) {
    Handle h = open_file("a", "abc", JX_PROTECT_C);
    write_file(jx::kRebootFlagPath, "");
    jx::test::LogCapture log;

    EXPECT_EQ(jx_insert("x", 1, 0, h.get()), JX_ERR_REBOOTING);
    EXPECT_EQ(jx_insert("x", 0, 0, h.get()), JX_ERR_REBOOTING);
    EXPECT_EQ(jx_delete(1, 0, h.get()), JX_ERR_REBOOTING);
    EXPECT_EQ(jx_modify("x", 1, 0, 1, h.get()), JX_ERR_REBOOTING);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(content(), "abc");

    EXPECT_EQ(jx_fputc('X', h.get()), 0);
    EXPECT_EQ(content(), "Xbc");
}

TEST_F(EditTest, DeleteCutsAtTheEndAndNeverWraps) {
    Handle h = open_file("a", "0123456789");
    write_file(path_ + ".sha256", "stale");

    EXPECT_EQ(jx_delete(1, 10, h.get()), 0);
    EXPECT_EQ(jx_delete(1, 11, h.get()), 0);
    EXPECT_EQ(content(), "0123456789");
    EXPECT_EQ(side_file(), "stale");

    EXPECT_EQ(jx_delete(3, 2, h.get()), 0);
    EXPECT_EQ(content(), "0156789");
    EXPECT_EQ(side_file(), side_file_text("0156789"));

    EXPECT_EQ(jx_delete(2, 5, h.get()), 0);  // exactly the last two
    EXPECT_EQ(content(), "01567");

    EXPECT_EQ(jx_delete(5, 3, h.get()), 0);  // runs past the end
    EXPECT_EQ(content(), "015");

    write_file(path_, "0123456789");
    EXPECT_EQ(jx_delete(UINT32_MAX, 8, h.get()), 0);
    EXPECT_EQ(content(), "01234567");
    EXPECT_EQ(side_file(), side_file_text("01234567"));
}

TEST_F(EditTest, InsertPlacesBytesAndRefusesLengthsBeyond32Bits) {
    Handle h = open_file("a", "middle");

    EXPECT_EQ(jx_insert("<", 1, 0, h.get()), 0);
    EXPECT_EQ(jx_insert(">", 1, 1000, h.get()), 0);
    EXPECT_EQ(jx_insert("--", 2, 4, h.get()), 0);
    EXPECT_EQ(content(), "<mid--dle>");
    EXPECT_EQ(side_file(), side_file_text("<mid--dle>"));

    std::string with_nul("a\0b", 3);
    EXPECT_EQ(jx_insert(with_nul.data(), 3, 10, h.get()), 0);
    EXPECT_EQ(content(), "<mid--dle>" + with_nul);

    jx::test::LogCapture log;
    EXPECT_EQ(jx_insert("x", UINT32_MAX, 0, h.get()), JX_ERR_NO_MEMORY);
    EXPECT_EQ(log.messages(), Messages{"app_a new length 4294967308 beyond 4 GiB."});
    EXPECT_EQ(content(), "<mid--dle>" + with_nul);
}

TEST_F(EditTest, ModifyReplacesARangeThatBeginsInsideTheFile) {
    Handle h = open_file("a", "abcd");

    EXPECT_EQ(jx_modify("x", 1, 4, 1, h.get()), JX_ERR_PARAM3);
    EXPECT_EQ(content(), "abcd");
    EXPECT_FALSE(exists(path_ + ".sha256"));

    EXPECT_EQ(jx_modify("uvwxyz", 6, 0, 10, h.get()), 0);
    EXPECT_EQ(content(), "uvwxyz");
    EXPECT_EQ(side_file(), side_file_text("uvwxyz"));

    EXPECT_EQ(jx_modify("12345", 5, 1, 2, h.get()), 0);
    EXPECT_EQ(content(), "u12345xyz");

    EXPECT_EQ(jx_modify("-", 1, 1, 5, h.get()), 0);
    EXPECT_EQ(content(), "u-xyz");

    EXPECT_EQ(jx_modify("END", 3, 2, UINT32_MAX, h.get()), 0);
    EXPECT_EQ(content(), "u-END");
    EXPECT_EQ(side_file(), side_file_text("u-END"));
}

TEST_F(EditTest, EveryEditWritesTheSideFileWhateverTheMode) {
    Handle h = open_file("c", "0123", JX_PROTECT_C);
    EXPECT_EQ(jx_insert("ab", 2, 2, h.get()), 0);
    EXPECT_EQ(side_file(), side_file_text("01ab23"));
    EXPECT_EQ(jx_delete(1, 0, h.get()), 0);
    EXPECT_EQ(side_file(), side_file_text("1ab23"));
    EXPECT_EQ(jx_modify("Z", 1, 4, 1, h.get()), 0);
    EXPECT_EQ(content(), "1ab2Z");
    EXPECT_EQ(side_file(), side_file_text("1ab2Z"));
}

TEST_F(EditTest, ReadFailuresLeaveTheFileUntouched) {
    Handle h = open_file("a", "0123456789");
    jx::test::LogCapture log;

    const int descriptor = h->file_no;
    h->file_no = -1;
    EXPECT_EQ(jx_delete(1, 0, h.get()), JX_ERR_READ);
    EXPECT_EQ(jx_modify("x", 1, 0, 1, h.get()), JX_ERR_READ);
    EXPECT_EQ(log.messages(), (Messages{"fstat app_a failed: errno 9(Bad file descriptor).",
                                        "fstat app_a failed: errno 9(Bad file descriptor)."}));
    h->file_no = descriptor;

    // The handle's path no longer leads to the file.
    ASSERT_EQ(rename(path_.c_str(), (path_ + ".moved").c_str()), 0);
    log.clear();
    EXPECT_EQ(jx_insert("x", 1, 0, h.get()), JX_ERR_READ);
    EXPECT_EQ(jx_delete(1, 0, h.get()), JX_ERR_READ);
    EXPECT_EQ(jx_modify("x", 1, 0, 1, h.get()), JX_ERR_READ);
    ASSERT_EQ(log.messages().size(), 3u);
    for (const std::string &message : log.messages()) {
        EXPECT_EQ(message.rfind("g_file_get_contents(app_a) failed: ", 0), 0u) << message;
    }
    EXPECT_EQ(read_file(path_ + ".moved"), "0123456789");
    EXPECT_FALSE(exists(path_ + ".sha256"));
}

TEST_F(EditTest, AFailedRewriteReturnsItsCodeAndReleasesBothLocks) {
    Handle h = open_file("a", "abc");
    jx::test::LogCapture log;
    jx::test::IoFaults faults;

    faults.fail(Call::kFtruncate, 1, EIO);
    EXPECT_EQ(jx_insert("x", 1, 0, h.get()), JX_ERR_WRITE);
    EXPECT_EQ(log.messages(), Messages{"ftruncate(app_a) failed: errno 5(Input/output error)."});

    // Another process can take the file's lock at once.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const int fd = open(path_.c_str(), O_RDONLY);
        _exit(fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);

    faults.fail(Call::kFopen, 1, EACCES);  // the side file cannot be written
    EXPECT_EQ(jx_delete(1, 0, h.get()), JX_ERR_OPEN);
    EXPECT_EQ(content(), "abc");

    EXPECT_EQ(jx_modify("B", 1, 1, 1, h.get()), 0);
    EXPECT_EQ(content(), "aBc");
    EXPECT_EQ(side_file(), side_file_text("aBc"));
}

TEST_F(EditTest, FputcKeepsTheSideFileOfProtectedFilesOnStorage) {
    Handle c = open_file("c", "abc", JX_PROTECT_C);
    EXPECT_EQ(jx_fputc('X', c.get()), 0);
    EXPECT_EQ(content(), "Xbc");
    EXPECT_FALSE(exists(path_ + ".sha256"));

    Handle r = open_file("r", "abc", JX_PROTECT_R);
    EXPECT_EQ(jx_fputc('X', r.get()), 0);
    EXPECT_EQ(jx_fputc(0x100 + 'Y', r.get()), 0);
    EXPECT_EQ(content(), "XYc");
    EXPECT_EQ(side_file(), side_file_text("XYc"));
    EXPECT_EQ(is_ram_file_valid(path_.c_str()), 1);

    jx::test::LogCapture log;
    jx::test::IoFaults faults;
    faults.fail(Call::kFputc, 1, EIO);
    EXPECT_EQ(jx_fputc('Z', r.get()), JX_ERR_WRITE);
    faults.fail(Call::kFflush, 1, ENOSPC);
    EXPECT_EQ(jx_fputc('Z', r.get()), JX_ERR_WRITE);
    faults.fail(Call::kFopen, 1, EACCES);  // the side file cannot be written
    EXPECT_EQ(jx_fputc('Z', r.get()), JX_ERR_WRITE);
    EXPECT_EQ(log.messages().front(), "fputc(app_r) failed:  errno 5(Input/output error)");
    EXPECT_EQ(log.messages()[1], "fputc(app_r) failed:  errno 28(No space left on device)");
    EXPECT_EQ(log.messages().back(), "ram_check(app_r) failed: -3999989");

    log.clear();
    Handle f = open_file("f", "abc", JX_PROTECT_F);
    EXPECT_EQ(jx_fputc('X', f.get()), JX_ERR_WRITE);
    EXPECT_EQ(log.messages(), Messages{"ram_check(app_f) failed: -3999993"});
    EXPECT_EQ(content(), "Xbc");
}

}  // namespace
