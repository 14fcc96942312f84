#include <cerrno>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <glib.h>
#include <gtest/gtest.h>

#include "frame/frame.h"
#include "integrity/checksum.h"
#include "jaxel.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::read_file;
using jx::test::write_file;
using ChecksumTest = jx::test::SandboxTest;
using Messages = std::vector<std::string>;

const char kPath[] = "/opt/ulx/pram/app_net.conf";
const char kSide[] = "/opt/ulx/pram/app_net.conf.sha256";

std::string sha(const std::string &data) {
    gchar *text = g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar *>(data.data()), data.size());
    std::string result(text);
    g_free(text);
    return result;
}

// The 65-byte checksum file of data.
std::string record(const std::string &data) { return sha(data) + std::string(1, '\0'); }

mode_t mode_of(const char *path) {
    struct stat st {};
    stat(path, &st);
    return st.st_mode & 07777;
}

// A handle as the open operations make it.
struct Handle {
    JxFile *file = static_cast<JxFile *>(g_malloc0(sizeof(JxFile)));
    explicit Handle(const char *path, const char *name = "handle/app_net.conf") {
        file->fd = jx::io().fopen(path, "r+");
        file->file_no = fileno(file->fd);
        g_strlcpy(file->file_path, path, sizeof file->file_path);
        g_strlcpy(file->file_name, name, sizeof file->file_name);
    }
    ~Handle() {
        fclose(file->fd);
        g_free(file);
    }
    int32_t rewrite(const std::string &data, const char *expected) {
        return jx::jx_rewrite_with_crc(file, data.data(), data.size(), expected);
    }
};

void prepare(const std::string &content) {
    write_file(kPath, content);
    ASSERT_EQ(jx::ram_check(kPath), 0);
}

TEST_F(ChecksumTest, SideFileOfAnEmptyFileIsTheEmptyDigestAndAZeroByte) {
    write_file(kPath, "");
    chmod(kPath, 0644);
    ASSERT_EQ(jx::ram_check(kPath), 0);
    EXPECT_EQ(read_file(kSide), record(""));
    EXPECT_EQ(read_file(kSide).size(), 65u);
    EXPECT_EQ(mode_of(kSide), 0600u);
    EXPECT_EQ(is_ram_file_valid(kPath), 1);
}

TEST_F(ChecksumTest, PrefixComparisonIgnoresTrailingBytesExactComparisonDoesNot) {
    const std::string digest = sha("abc");
    const char *file = "/opt/ulx/save/data";
    const char *crc = "/opt/ulx/save/data.sha256";
    write_file(file, "abc");
    for (const std::string &trailer : {std::string("\n"), std::string("other bytes")}) {
        write_file(crc, digest + trailer);
        EXPECT_EQ(is_file_valid(file, crc), 1) << trailer;
    }
    write_file(crc, digest.substr(0, 63));
    EXPECT_EQ(is_file_valid(file, crc), 0);
    EXPECT_EQ(is_file_valid(file, "/opt/ulx/save/none"), 0);
    EXPECT_EQ(is_file_valid(nullptr, crc), 0);

    // The rewrite compares exactly: the same digest with a newline is refused.
    prepare("old");
    Handle handle(kPath);
    jx::test::LogCapture log;
    EXPECT_EQ(handle.rewrite("abc", (digest + "\n").c_str()), JX_ERR_CHECKSUM);
    EXPECT_EQ(log.messages(), Messages{"crc check failed."});
}

TEST_F(ChecksumTest, RewriteWithAWrongOrMissingDigestTouchesNothing) {
    prepare("old");
    Handle handle(kPath);
    std::string wrong = sha("new");
    wrong[10] = wrong[10] == 'a' ? 'b' : 'a';
    jx::test::LogCapture log;
    EXPECT_EQ(handle.rewrite("new", wrong.c_str()), JX_ERR_CHECKSUM);
    EXPECT_EQ(handle.rewrite("new", nullptr), JX_ERR_CHECKSUM);
    EXPECT_EQ(log.messages(), (Messages{"crc check failed.", "crc check failed."}));
    EXPECT_EQ(read_file(kPath), "old");
    EXPECT_EQ(read_file(kSide), record("old"));
}

TEST_F(ChecksumTest, RewriteReplacesContentAndRecordsItsDigest) {
    write_file(kPath, "old and longer");
    write_file(kSide, "stale");
    chmod(kSide, 0644);
    Handle handle(kPath);
    ASSERT_EQ(handle.rewrite("new", sha("new").c_str()), 0);
    EXPECT_EQ(read_file(kPath), "new");
    EXPECT_EQ(read_file(kSide), record("new"));
    EXPECT_EQ(mode_of(kSide), 0600u);
    EXPECT_EQ(ftell(handle.file->fd), 3);

    ASSERT_EQ(handle.rewrite("", sha("").c_str()), 0);
    EXPECT_EQ(read_file(kPath), "");
    EXPECT_EQ(read_file(kSide), record(""));
    EXPECT_EQ(ftell(handle.file->fd), 0);
}

TEST_F(ChecksumTest, FailedSideFileWriteLeavesTheContentUntouched) {
    prepare("old");
    Handle handle(kPath);
    jx::test::LogCapture log;
    jx::test::IoFaults faults;
    faults.fail(Call::kFopen, 1, EACCES);
    EXPECT_EQ(handle.rewrite("new", sha("new").c_str()), JX_ERR_OPEN);
    EXPECT_EQ(log.messages().back(), "jx_set_content(sha256) failed: ret=-3999989.");
    faults.fail(Call::kFsync, 1, EIO);
    EXPECT_EQ(handle.rewrite("new", sha("new").c_str()), JX_ERR_WRITE);
    EXPECT_EQ(log.messages().back(), "jx_set_content(sha256) failed: ret=-3999987.");
    EXPECT_EQ(faults.count(Call::kFtruncate), 0);
    EXPECT_EQ(read_file(kPath), "old");
}

// The side file already exists, so its write costs one fwrite, flush and fsync.
TEST_F(ChecksumTest, EachFailingStepOfTheRewriteLogsItsOwnLine) {
    struct Step {
        Call call;
        int nth;
        const char *message;
    };
    const Step steps[] = {
        {Call::kFtruncate, 1, "ftruncate(app_net.conf) failed: errno 5(Input/output error)."},
        {Call::kFwrite, 2, "fwrite app_net.conf failed."},
        {Call::kFflush, 2, "fwrite fflush(handle/app_net.conf) failed:err[5:Input/output error]."},
        {Call::kFsync, 2, "fwrite fsync(handle/app_net.conf) failed:err[5:Input/output error]."},
    };
    prepare("old");
    Handle handle(kPath);
    jx::test::LogCapture log;
    for (const Step &step : steps) {
        jx::test::IoFaults faults;
        faults.fail(step.call, step.nth, EIO);
        EXPECT_EQ(handle.rewrite("new", sha("new").c_str()), JX_ERR_WRITE) << step.message;
        EXPECT_EQ(log.messages().back(), step.message);
    }
}

TEST_F(ChecksumTest, RecoverDirectlyWritesTheTrustedChecksumFirstAndStopsAtAFailure) {
    jx::RegItem item{};
    g_strlcpy(item.dst, "/opt/ulx/save/m", sizeof item.dst);
    g_strlcpy(item.crc, "/opt/ulx/save/m.sha256", sizeof item.crc);
    g_strlcpy(item.bak, "/opt/ulx/save/m.bak", sizeof item.bak);
    g_strlcpy(item.bakcrc, "/opt/ulx/save/m.bak.sha256", sizeof item.bakcrc);
    struct Order {
        int direction;
        std::vector<std::pair<const char *, std::string>> writes;
        const char *untouched;
    };
    const Order orders[] = {
        {jx::kMainToBackup,
         {{item.crc, record("x")}, {item.bak, "x"}, {item.bakcrc, record("x")}},
         item.dst},
        {jx::kBackupToMain,
         {{item.bakcrc, record("x")}, {item.dst, "x"}, {item.crc, record("x")}},
         item.bak},
    };
    for (const Order &order : orders) {
        for (size_t failing = 0; failing <= order.writes.size(); ++failing) {
            for (const char *path : {item.dst, item.crc, item.bak, item.bakcrc}) {
                write_file(path, "old");
            }
            jx::test::LogCapture log;
            jx::test::IoFaults faults;
            if (failing < order.writes.size()) {
                faults.fail(Call::kFopen, static_cast<int>(failing) + 1, EACCES);
            }
            const int32_t expected = failing < order.writes.size() ? JX_ERR_OPEN : 0;
            EXPECT_EQ(jx::jx_recover_directly(&item, "x", 1, order.direction), expected);
            for (size_t i = 0; i < order.writes.size(); ++i) {
                const auto &[path, content] = order.writes[i];
                EXPECT_EQ(read_file(path), i < failing ? content : "old")
                    << "direction " << order.direction << " failing " << failing << " " << path;
            }
            EXPECT_EQ(read_file(order.untouched), "old");
        }
    }
}

TEST_F(ChecksumTest, CrcCopyWritesOnlyAVerifiedContent) {
    const char *dest = "/opt/ulx/save/copy";
    const char *dest_crc = "/opt/ulx/save/copy.sha256";
    jx::test::LogCapture log;
    EXPECT_EQ(jx::jx_crc_copy("payload", 7, sha("other").c_str(), dest, dest_crc), JX_ERR_CRC);
    EXPECT_EQ(log.messages(), Messages{"(copy)check CRC failed ,(checksumType:2)."});
    EXPECT_FALSE(exists(dest));
    EXPECT_FALSE(exists(dest_crc));

    log.clear();
    {
        jx::test::IoFaults faults;
        faults.fail(Call::kFopen, 1, EACCES);
        EXPECT_EQ(jx::jx_crc_copy("payload", 7, sha("payload").c_str(), dest, dest_crc),
                  JX_ERR_OPEN);
    }
    EXPECT_EQ(log.messages().front(), "recover file(copy) successfully.(checksumType:2).");
    EXPECT_FALSE(exists(dest_crc));

    const std::string expected = sha("payload") + "\n";
    ASSERT_EQ(jx::jx_crc_copy("payload", 7, expected.c_str(), dest, dest_crc), 0);
    EXPECT_EQ(read_file(dest), "payload");
    EXPECT_EQ(read_file(dest_crc), record("payload"));
}

TEST_F(ChecksumTest, RamCheckReportsUnreadableFilesAndFailedSideFiles) {
    jx::test::LogCapture log;
    EXPECT_EQ(jx::ram_check("/opt/ulx/pram/missing"), JX_ERR_READ);
    ASSERT_EQ(log.messages().size(), 1u);
    EXPECT_EQ(log.messages()[0].rfind("g_file_get_contents(missing) failed: ", 0), 0u);
    EXPECT_FALSE(exists("/opt/ulx/pram/missing.sha256"));

    write_file(kPath, "data");
    jx::test::IoFaults faults;
    faults.fail(Call::kFopen, 1, EACCES);
    EXPECT_EQ(jx::ram_check(kPath), JX_ERR_OPEN);
    const Messages messages = log.messages();
    EXPECT_EQ(Messages(messages.end() - 2, messages.end()),
              (Messages{"jx_set_content(sha256) failed: ret=-3999989.",
                        "__ram_check_sum1(app_net.conf) failed: -3999989."}));
}

TEST_F(ChecksumTest, RamFileValidity) {
    write_file(kPath, "data");
    EXPECT_EQ(is_ram_file_valid(kPath), 1);
    write_file(kSide, "");
    EXPECT_EQ(is_ram_file_valid(kPath), 0);
    write_file(kSide, record("other"));
    EXPECT_EQ(is_ram_file_valid(kPath), 0);
    write_file(kSide, record("data"));
    EXPECT_EQ(is_ram_file_valid(kPath), 1);

    write_file("/opt/ulx/save/app_net.conf", "data");
    write_file("/opt/ulx/save/app_net.conf.sha256", record("data"));
    EXPECT_EQ(is_ram_file_valid("/opt/ulx/save/app_net.conf"), 0);
    EXPECT_EQ(is_ram_file_valid("/opt/ulx/pram/missing"), 0);
    EXPECT_EQ(is_ram_file_valid(nullptr), 0);
}

// Runs a rewrite in a child that dies just before its kth fsync, as a power
// cut would; returns the child's exit status.
int rewrite_cut_before_fsync(int k) {
    const pid_t child = fork();
    if (child == 0) {
        Handle handle(kPath);
        jx::test::IoFaults faults;
        faults.crash_before(Call::kFsync, k);
        _exit(handle.rewrite("new content", sha("new content").c_str()) == 0 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// After a cut the file either holds the new content its side file names, or
// fails the validity test so that recovery runs.
TEST_F(ChecksumTest, PowerCutDuringRewriteNeverLeavesATornValidFile) {
    int status = jx::test::kCrashExitStatus;
    for (int k = 1; status == jx::test::kCrashExitStatus; ++k) {
        ASSERT_LT(k, 10);
        prepare("old");
        status = rewrite_cut_before_fsync(k);
        if (is_ram_file_valid(kPath) == 1) {
            EXPECT_EQ(read_file(kPath), "new content") << "fsync " << k;
            EXPECT_EQ(read_file(kSide), record("new content")) << "fsync " << k;
        }
    }
    EXPECT_EQ(status, 0);
}

}  // namespace
