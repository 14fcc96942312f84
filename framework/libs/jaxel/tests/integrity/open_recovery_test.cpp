#include <cerrno>
#include <ostream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <glib.h>
#include <gtest/gtest.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "maintenance/maintenance.h"
#include "recovery/recovery.h"
#include "support/io_faults.h"
#include "support/log_capture.h"
#include "support/registration.h"
#include "support/sandbox.h"

namespace {

using jx::test::Call;
using jx::test::exists;
using jx::test::read_file;
using jx::test::write_file;
using Messages = std::vector<std::string>;

constexpr gid_t kGroup = 103;

std::string record(const std::string &data) {
    gchar *text = g_compute_checksum_for_data(
        G_CHECKSUM_SHA256, reinterpret_cast<const guchar *>(data.data()), data.size());
    std::string result = std::string(text) + std::string(1, '\0');
    g_free(text);
    return result;
}

struct Owner {
    uid_t uid;
    gid_t gid;
    mode_t mode;
    bool operator==(const Owner &) const = default;
};

std::ostream &operator<<(std::ostream &out, const Owner &o) {
    return out << o.uid << ":" << o.gid << " " << std::oct << o.mode << std::dec;
}

Owner owner_of(const std::string &path) {
    struct stat st {};
    EXPECT_EQ(stat(path.c_str(), &st), 0) << path;
    return {st.st_uid, st.st_gid, st.st_mode & 07777};
}

void give(const std::string &path, const Owner &o) {
    ASSERT_EQ(chown(path.c_str(), o.uid, o.gid), 0) << path;
    ASSERT_EQ(chmod(path.c_str(), o.mode), 0) << path;
}

class OpenRecoveryTest : public jx::test::SandboxTest {
protected:
    // Registers module "app"'s file and looks its record up as an open would.
    static jx::RegItem enroll(const char *short_name, ProtectMode mode, JxPrivilege privilege = 0) {
        JxItemCfg cfg{};
        cfg.short_name = short_name;
        cfg.protect_mode = mode;
        cfg.privilege = privilege;
        const std::string src = jx::test::register_for_test("app", cfg);
        const jx::GPtr<jx::RegItem> found(jx::get_reg_inter_info(src.c_str()));
        if (!found) {
            ADD_FAILURE() << "no record for " << src;
            return jx::RegItem{};
        }
        return *found;
    }

    // A sound durable pair and backup pair of an E or S item.
    static void sound_copies(const jx::RegItem &item, const std::string &content) {
        write_file(item.dst, content);
        write_file(item.crc, record(content));
        write_file(item.bak, content);
        write_file(item.bakcrc, record(content));
    }
};

TEST_F(OpenRecoveryTest, NothingToRecoverFromFailsTheOpenButNotTheRegistration) {
    const jx::RegItem item = enroll("k.conf", JX_PROTECT_E, jx::make_privilege(0x640, kGroup));
    write_file(item.crc, "");
    jx::test::LogCapture log;
    EXPECT_EQ(jx::jx_file_recover_by_name(item.src, &item), JX_ERR_NOT_FOUND);
    EXPECT_EQ(log.messages(), Messages{"jx_recover_dst_file(app_k.conf) failed: ret -3999985."});

    log.clear();
    jx::test::IoFaults faults;
    EXPECT_EQ(jx::jx_file_recover(&item), 0);
    EXPECT_TRUE(log.messages().empty());
    for (Call call : {Call::kFopen, Call::kChmod, Call::kChown, Call::kFchmod, Call::kFchown}) {
        EXPECT_EQ(faults.count(call), 0) << "no privilege may be touched";
    }
    EXPECT_FALSE(exists(item.src));
}

TEST_F(OpenRecoveryTest, UnregisteredFileIsRefused) {
    jx::test::open_reg_table();
    const char *path = "/opt/ulx/pram/app_x";
    write_file(path, "data");
    write_file(std::string(path) + ".sha256", record("other"));
    ASSERT_EQ(is_ram_file_valid(path), 0);
    jx::test::LogCapture log;
    const jx::GPtr<jx::RegItem> item(jx::get_reg_inter_info(path));
    EXPECT_EQ(jx::jx_file_recover_by_name(path, item.get()), JX_ERR_NOT_REGISTERED);
    EXPECT_EQ(log.messages(), Messages{"(app_x) not found in fsync_reg.ini."});
    EXPECT_EQ(read_file(path), "data");
}

TEST_F(OpenRecoveryTest, FlashItemIsRebuiltThroughTheDriver) {
    const jx::RegItem item = enroll("p.conf", JX_PROTECT_P);
    ASSERT_EQ(jx_set_content(item.dst, "flash content", 13), 0);
    write_file(item.dst, "torn by a cut");
    jx::test::IoFaults faults;
    EXPECT_EQ(jx::jx_file_recover_by_name(item.src, &item), 0);
    EXPECT_EQ(faults.count(Call::kPflashRecover), 1);
    EXPECT_EQ(read_file(item.src), "flash content");
    EXPECT_EQ(read_file(std::string(item.src) + ".sha256"), record("flash content"));
}

TEST_F(OpenRecoveryTest, ValidWorkingCopyIsKeptAndSharesItsPrivilegeAtRegistration) {
    const jx::RegItem item = enroll("net.conf", JX_PROTECT_E, jx::make_privilege(0x640, kGroup));
    const std::string side = std::string(item.src) + ".sha256";
    write_file(item.src, "ram");
    write_file(side, record("ram"));
    give(item.src, {0, 0, 0644});
    give(side, {0, 0, 0644});
    sound_copies(item, "durable");
    for (const char *path : {item.dst, item.bak, item.crc, item.bakcrc}) {
        give(path, {1000, 1000, 0600});
    }
    jx::test::LogCapture log;
    EXPECT_EQ(jx::jx_file_recover(&item), 0);
    EXPECT_TRUE(log.messages().empty());
    EXPECT_EQ(read_file(item.src), "ram");
    EXPECT_EQ(owner_of(item.src), (Owner{0, kGroup, 0640}));
    EXPECT_EQ(owner_of(side), (Owner{0, kGroup, 0600}));
    for (const char *path : {item.dst, item.bak, item.crc, item.bakcrc}) {
        EXPECT_EQ(owner_of(path), (Owner{0, kGroup, 0640})) << path;
    }
    EXPECT_EQ(read_file(item.dst), "durable");
}

TEST_F(OpenRecoveryTest, CItemWorkingCopyTakesTheDurableCopysOwnerAndNoSideFile) {
    const jx::RegItem item = enroll("c.conf", JX_PROTECT_C, jx::make_privilege(0x664, kGroup));
    const std::string side = std::string(item.src) + ".sha256";
    write_file(item.dst, "durable");
    give(item.dst, {1000, 1001, 0640});

    jx::test::LogCapture log;
    EXPECT_EQ(jx::jx_file_recover_by_name(item.src, &item), 0);
    EXPECT_EQ(read_file(item.src), "durable");
    EXPECT_EQ(owner_of(item.src), (Owner{1000, 1001, 0640}));
    EXPECT_FALSE(exists(side));

    // At registration the rebuilt copy then gets the registered privilege,
    // which the durable copy takes over from it.
    ASSERT_EQ(unlink(item.src), 0);
    EXPECT_EQ(jx::jx_file_recover(&item), 0);
    EXPECT_EQ(read_file(item.src), "durable");
    EXPECT_EQ(owner_of(item.src), (Owner{1000, kGroup, 0664}));
    EXPECT_EQ(owner_of(item.dst), (Owner{1000, kGroup, 0664}));
    EXPECT_FALSE(exists(side));
    EXPECT_TRUE(log.messages().empty());
}

// The two entries report the same failures in their own words.
TEST_F(OpenRecoveryTest, FailuresAreLoggedByEachEntryAndReturned) {
    struct Row {
        const char *what;
        bool corrupt_durable;
        int fail_fopen;
        int32_t result;
        const char *at_open;
        const char *at_registration;
    };
    const Row rows[] = {
        {"engine", true, 0, JX_ERR_CRC, "jx_recover_dst_file(app_e.conf) failed: ret -3999984.",
         "jx_recover_dst_file failed: ret -3999984."},
        {"copy", false, 1, JX_ERR_OPEN,
         "jx_file_copy failed: ret -3999989. flash_file app_e.conf, ram_file app_e.conf",
         "jx_file_copy failed: ret -3999989. flash_file = app_e.conf, ram_file = app_e.conf"},
        {"side file", false, 2, JX_ERR_OPEN, "ram_check(app_e.conf) failed: ret -3999989.",
         "ram_check(app_e.conf) failed: ret -3999989."},
    };
    const jx::RegItem item = enroll("e.conf", JX_PROTECT_E);
    for (const Row &row : rows) {
        for (const bool at_open : {true, false}) {
            sound_copies(item, "durable");
            if (row.corrupt_durable) {
                write_file(item.dst, "torn");
                write_file(item.bak, "torn");
            }
            unlink(item.src);
            jx::test::LogCapture log;
            jx::test::IoFaults faults;
            if (row.fail_fopen != 0) {
                faults.fail(Call::kFopen, row.fail_fopen, EACCES);
            }
            const int32_t rc =
                at_open ? jx::jx_file_recover_by_name(item.src, &item) : jx::jx_file_recover(&item);
            EXPECT_EQ(rc, row.result) << row.what;
            ASSERT_FALSE(log.messages().empty()) << row.what;
            EXPECT_EQ(log.messages().back(), at_open ? row.at_open : row.at_registration)
                << row.what;
        }
    }
}

}  // namespace
