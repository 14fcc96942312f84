#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <json-glib/json-glib.h>

#include "tools_fixture.h"

namespace {

using namespace jx::test;

// What is done to a healthy, synced file "a" before the command runs.
enum Damage { kNone, kWorking, kSaved, kNoDurable, kAhead, kBusy, kReboot, kJunk, kDup, kDir };

struct Row {
    Damage damage;
    std::vector<std::string> args;
    int exit;
    const char *shows;  // a piece of the text output
    const char *after;  // "a"'s working and durable copies afterwards, null: unchanged
};

const Row kRows[] = {
    {kNone, {"status"}, 0, "working=ok durable=ok backup=ok in_step=yes", "alpha"},
    {kNone, {"verify", kWork}, 0, "md_a E working=ok", nullptr},
    {kWorking, {"verify"}, 4, "working=mismatch", nullptr},
    {kSaved, {"verify"}, 4, "durable=mismatch", nullptr},
    {kWorking, {"repair"}, 1, "action=rebuild-working-from-durable", "alpha"},
    {kWorking, {"repair", "-n"}, 4, "action=would-rebuild-working-from-durable", nullptr},
    {kSaved, {"repair"}, 1, "action=repair-durable-from-backup", "alpha"},
    {kSaved, {"sync"}, 1, "action=synced", "alpha"},
    {kNoDurable, {"sync"}, 1, "durable=ok backup=ok in_step=yes action=synced", "alpha"},
    {kAhead, {"sync", "-n"}, 4, "in_step=no action=would-sync", nullptr},
    {kAhead, {"sync", kWork}, 1, "action=synced", "beta"},
    {kWorking, {"sync"}, 4, "action=unverified", nullptr},
    {kBusy, {"--wait=1", "status"}, 8, "working=busy", nullptr},
    {kBusy, {"--wait=1", "sync"}, 8, "action=busy", nullptr},
    {kReboot, {"repair"}, 8, "", nullptr},
    {kReboot, {"sync", "-n"}, 8, "action=rebooting", nullptr},
    {kDir, {"factory", "/opt/ulx/factory"}, 1, "f.conf F working=ok", "alpha"},
    {kDir, {"factory", "-n", "/opt/ulx/factory"}, 4, "action=would-restore", nullptr},
    {kNone, {"table", "--check"}, 0, "", nullptr},
    {kJunk, {"table", "--check"}, 4, "table damaged: ", nullptr},
    {kDup, {"table", "--check"}, 4, "duplicate src /opt/ulx/pram/md_a", nullptr},
    {kNone, {"status", "-n"}, 16, "", nullptr},
    {kNone, {"bogus"}, 16, "", nullptr},
};

int g_held = -1;

void damage(Damage what) {
    const std::string table = "/opt/ulx/pram/fsync_reg.ini";
    switch (what) {
    case kWorking: write_file(kWork, "junk"); break;
    case kSaved: write_file(kDurable, "junk"); break;
    case kNoDurable: unlink(kDurable.c_str()), unlink((kDurable + ".bak").c_str()); break;
    case kAhead: write_through_library("a", "beta"); break;
    case kBusy: g_held = open(kWork.c_str(), O_RDONLY), flock(g_held, LOCK_EX); break;
    case kReboot: write_file("/dev/shm/.Reboot.flag", ""); break;
    case kJunk: write_file(table, read_file(table) + "junk line\n"); break;
    case kDup: write_file(table, read_file(table) + "[E4]\nsrc=" + kWork + "\n"); break;
    case kDir: mkdir("/opt/ulx/factory", 0755), write_file("/opt/ulx/factory/f.conf", "f"); break;
    case kNone: break;
    }
}

using Files = std::map<std::string, std::string>;

ToolRun run_row(const Row &row, bool json, Files &before) {
    reset_sandbox();
    lay_registered("alpha");
    EXPECT_EQ(run_tool(JAXELCTL_PATH, {"sync"}).exit, 1);
    damage(row.damage);
    std::vector<std::string> args = row.args;
    if (json)
        args.insert(args.begin(), "--json");
    before = all_files();
    const ToolRun run = run_tool(JAXELCTL_PATH, args);
    (void)(g_held >= 0 && close(g_held)), g_held = -1;
    return run;
}

// The text jaxelctl prints, rebuilt from its JSON document.
std::string text_of(const std::string &json) {
    g_autoptr(JsonParser) parser = json_parser_new();
    std::string text = json_parser_load_from_data(parser, json.c_str(), -1, nullptr) ? "" : "bad";
    JsonObject *doc = json_node_get_object(json_parser_get_root(parser));
    EXPECT_EQ(json_object_get_int_member(doc, "schema"), 1);
    JsonArray *files = json_object_get_array_member(doc, "files");
    for (guint i = 0; i < json_array_get_length(files); ++i) {
        JsonObject *f = json_array_get_object_element(files, i);
        auto s = [f](const char *k) { return std::string(json_object_get_string_member(f, k)); };
        text += s("path") + " " + s("mode") + " working=" + s("working") +
                " durable=" + s("durable") + " backup=" + s("backup") +
                " in_step=" + (json_object_get_boolean_member(f, "in_step") ? "yes" : "no") +
                " action=" + s("action") + "\n";
    }
    JsonArray *problems = json_object_get_array_member(doc, "problems");
    for (guint i = 0; i < json_array_get_length(problems); ++i)
        text += std::string("table ") + json_array_get_string_element(problems, i) + "\n";
    return text;
}

class CtlTest : public SandboxTest {};

TEST_F(CtlTest, CommandsTable) {
    for (const Row &row : kRows) {
        SCOPED_TRACE(row.args[0] + " damage " + std::to_string(row.damage));
        Files before;
        const ToolRun text = run_row(row, false, before);
        const Files files = all_files();
        EXPECT_EQ(text.exit, row.exit);
        EXPECT_NE(text.out.find(row.shows), std::string::npos) << text.out;
        Files ignored;
        const ToolRun json = run_row(row, true, ignored);
        EXPECT_EQ(json.exit, row.exit);
        if (row.exit != 16) {
            EXPECT_EQ(text_of(json.out), text.out);
        }
        if (row.damage == kDir && row.exit == 1) {
            EXPECT_EQ(files.at(kFactoryLive), "f");
        } else if (row.after != nullptr) {
            EXPECT_EQ(files.at(kWork), row.after);
            EXPECT_EQ(files.at(kDurable), row.after);
            EXPECT_EQ(files.at(kDurable + ".sha256"), side_file_text(row.after));
        } else {
            EXPECT_EQ(files, before) << "a dry or failing run changes nothing";
        }
    }
}

}  // namespace
