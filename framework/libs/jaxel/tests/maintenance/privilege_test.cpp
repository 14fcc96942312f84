#include <cerrno>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "maintenance/maintenance.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::write_file;
using PrivilegeTest = jx::test::SandboxTest;

struct stat stat_of(const char *path) {
    struct stat st {};
    EXPECT_EQ(lstat(path, &st), 0) << path;
    return st;
}

mode_t mode_of(const char *path) { return stat_of(path).st_mode & 07777; }

TEST(CreatePrivilege, OnlyFourCodeBitsCountOnTopOfOwnerReadWrite) {
    const struct {
        uint32_t code;
        uint32_t mode;
    } cases[] = {{68, 0644},
                 {0x640, 0640},
                 {0x660, 0660},
                 {0, 0600},
                 {0x777, 0666},
                 {0xFFFFFFFF, 0666},
                 {420 /* 0644 octal */, 0624}};
    for (const auto &c : cases) {
        EXPECT_EQ(jx_create_privilege(c.code), c.mode) << std::hex << c.code;
    }
}

TEST_F(PrivilegeTest, SetPrivilegeAppliesModeAndGroupAndCreatesNothing) {
    const char *path = "/opt/ulx/pram/p";
    write_file(path, "x");
    jx_set_privilege(path, jx::make_privilege(0x640, 103));
    EXPECT_EQ(mode_of(path), 0640u);
    EXPECT_EQ(stat_of(path).st_gid, 103u);

    jx_set_privilege(path, jx::make_privilege(0x600, 0));
    EXPECT_EQ(stat_of(path).st_gid, 0u);

    jx_set_privilege("/opt/ulx/pram/missing", jx::make_privilege(0x644, 1));
    jx_set_privilege(nullptr, 0);
    EXPECT_FALSE(exists("/opt/ulx/pram/missing"));
}

TEST_F(PrivilegeTest, SyncCopiesOwnerGroupAndModeAndEndsPackagesReadOnly) {
    const char *ref = "/opt/ulx/pram/ref";
    write_file(ref, "r");
    ASSERT_EQ(chown(ref, 1000, 1001), 0);
    ASSERT_EQ(chmod(ref, 0644), 0);

    EXPECT_EQ(jx_sync_privilege(nullptr, ref), JX_ERR_PARAM1);
    EXPECT_EQ(jx_sync_privilege("", ref), JX_ERR_PARAM1);
    EXPECT_EQ(jx_sync_privilege(ref, ""), JX_ERR_PARAM2);
    EXPECT_EQ(jx_sync_privilege(ref, "/opt/ulx/pram/none"), 0);
    EXPECT_FALSE(exists("/opt/ulx/pram/none"));

    const char *target = "/opt/ulx/pram/t";
    write_file(target, "t");
    ASSERT_EQ(chmod(target, 0600), 0);
    EXPECT_EQ(jx_sync_privilege(ref, target), 0);
    EXPECT_EQ(stat_of(target).st_uid, 1000u);
    EXPECT_EQ(stat_of(target).st_gid, 1001u);
    EXPECT_EQ(mode_of(target), 0644u);

    EXPECT_EQ(jx_sync_privilege("/opt/ulx/pram", target), JX_ERR_PARAM1);

    const char *package = "/opt/ulx/pram/t.tar.gz";
    const char *capitals = "/opt/ulx/pram/t.TAR.GZ";
    for (const char *p : {package, capitals}) {
        write_file(p, "");
        ASSERT_EQ(chown(p, 1000, 1001), 0);
        ASSERT_EQ(chmod(p, 0644), 0);
        EXPECT_EQ(jx_sync_privilege(ref, p), 0);
    }
    EXPECT_EQ(mode_of(package), 0440u);
    EXPECT_EQ(mode_of(capitals), 0644u);
}

TEST_F(PrivilegeTest, SyncPassesOnTheFailingCallAndNeverFollowsALink) {
    const char *ref = "/opt/ulx/pram/ref";
    const char *target = "/opt/ulx/pram/t";
    write_file(ref, "r");
    write_file(target, "t");
    ASSERT_EQ(chown(ref, 1000, 1000), 0);
    jx::test::LogCapture log;
    {
        jx::test::IoFaults faults;
        faults.fail(Call::kChown, 1, EPERM);
        EXPECT_EQ(jx_sync_privilege(ref, target), -1);
        EXPECT_EQ(log.messages().back(),
                  "chown(t) failed: ret -1 errno 1(Operation not permitted)");
        EXPECT_EQ(faults.count(Call::kChmod), 0);
    }

    write_file("/opt/ulx/outside", "keep");
    ASSERT_EQ(chmod("/opt/ulx/outside", 0600), 0);
    ASSERT_EQ(symlink("/opt/ulx/outside", "/opt/ulx/pram/link"), 0);
    EXPECT_EQ(jx_sync_privilege(ref, "/opt/ulx/pram/link"), JX_ERR_PARAM2);
    EXPECT_EQ(stat_of("/opt/ulx/outside").st_uid, 0u);
    EXPECT_EQ(mode_of("/opt/ulx/outside"), 0600u);
}

JxFile *handle_for(const char *path, JxModuleItem &item) {
    auto *handle = static_cast<JxFile *>(g_malloc0(sizeof(JxFile)));
    g_strlcpy(handle->file_path, path, sizeof handle->file_path);
    handle->item = &item;
    return handle;
}

TEST_F(PrivilegeTest, OpenAppliesTheRegisteredModeAndGroupEvenForReading) {
    const char *path = "/opt/ulx/pram/o";
    write_file(path, "x");
    ASSERT_EQ(chmod(path, 0600), 0);
    JxModuleItem item{};
    item.privilege = jx::make_privilege(0x640, 103);
    JxFile *handle = handle_for(path, item);
    ASSERT_EQ(jx::jx_open_with_privilege(handle, "r"), 0);
    EXPECT_NE(handle->fd, nullptr);
    EXPECT_EQ(handle->file_no, fileno(handle->fd));
    EXPECT_EQ(mode_of(path), 0640u);
    EXPECT_EQ(stat_of(path).st_gid, 103u);
    fclose(handle->fd);

    jx::test::LogCapture log;
    g_strlcpy(handle->file_path, "/opt/ulx/pram/absent", sizeof handle->file_path);
    EXPECT_EQ(jx::jx_open_with_privilege(handle, "r"), JX_ERR_STATE);
    EXPECT_EQ(log.messages().back(), "g_fopen(absent) failed: 2(No such file or directory).");
    EXPECT_EQ(handle->fd, nullptr);
    g_free(handle);
}

// A process that may not change the file's mode fails the open and keeps no stream.
TEST_F(PrivilegeTest, OpenByAnUnprivilegedUserFailsAndLeavesNothingOpen) {
    const char *path = "/opt/ulx/pram/foreign";
    write_file(path, "x");
    ASSERT_EQ(chmod(path, 0644), 0);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (setgid(1000) != 0 || setuid(1000) != 0) {
            _exit(10);
        }
        jx::test::LogCapture log;
        JxModuleItem item{};
        item.privilege = jx::make_privilege(0x640, 103);
        JxFile *handle = handle_for(path, item);
        const int before = jx::test::open_descriptor_count();
        const int32_t rc = jx::jx_open_with_privilege(handle, "r");
        const bool logged = !log.messages().empty() &&
                            log.messages().back().rfind("fchmod failed: errno 1(", 0) == 0;
        const bool closed = handle->fd == nullptr && jx::test::open_descriptor_count() == before;
        _exit(rc == JX_ERR_STATE && logged && closed ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(mode_of(path), 0644u);
}

}  // namespace
