#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "frame/io.h"
#include "journal/journal.h"
#include "support/support.h"

namespace jx::test {
namespace {

// The writer tells of its commit on one pipe and waits on the other.
int g_committed = -1, g_release = -1;
bool g_waited = false, g_released = false;

// In the writer: its first in-place write comes right after its commit point.
// It says so and stops there until it is released.
ssize_t stopping_pwrite(int fd, const void *data, size_t len, off_t offset) {
    char go = 0;
    if (const int told = std::exchange(g_committed, -1);
        told >= 0 && (write(told, "C", 1) != 1 || read(g_release, &go, 1) != 1))
        _exit(3);
    return real_io().pwrite(fd, data, len, offset);
}

void release_writer() { g_released = g_released || write(g_release, "R", 1) == 1; }

// In the reader: a lock it would have to wait for releases the writer first,
// so the wait ends, and the wait is recorded. A poll for a lock (only a
// reader that failed to wait for the record polls for the file's lock)
// releases the writer too, so such a fault fails instead of hanging.
int releasing_flock(int fd, int operation) {
    if ((operation & (LOCK_NB | LOCK_UN)) == 0 && real_io().flock(fd, operation | LOCK_NB) != 0)
        g_waited = true, release_writer();
    return real_io().flock(fd, operation);
}

void releasing_delay(uint32_t units) { release_writer(), real_io().delay(units); }

// A writer stopped right after its commit point holds its record: another
// process's start-up leaves record and file alone, and its open waits for
// the writer, then reads the new content.
TEST_F(SandboxTest, LiveWriterIsSkippedByStartUpAndAwaitedByOpen) {
    const JxItemCfg items[] = {item_cfg("w", JX_PROTECT_E)};
    ASSERT_EQ(register_items("app", {items[0]}), 0);
    ASSERT_EQ(write_text(open_handle("w", "w").get(), "old"), 3);
    const std::string path = tier_path("app", "w"), record = redo_record_path(path.c_str());
    int committed[2], release[2];
    ASSERT_EQ(pipe(committed) | pipe(release), 0);
    const pid_t writer = fork();
    if (writer == 0) {
        close(committed[0]), close(release[1]);
        g_committed = committed[1], g_release = release[0];
        io().pwrite = stopping_pwrite;
        _exit(write_text(open_handle("w", "r+").get(), "new") == 3 ? 0 : 1);
    }
    close(committed[1]), close(release[0]);
    g_release = release[1], g_waited = g_released = false;
    char tag = 0;
    ASSERT_EQ(read(committed[0], &tag, 1), 1);
    const IoFaults restores_the_seam;
    io().flock = releasing_flock;
    io().delay = releasing_delay;
    EXPECT_EQ(jx_init_cfg(items, 1, "app"), 0);
    EXPECT_TRUE(exists(record) && read_file(path) == "old" && !g_waited);
    const Handle reader = open_handle("w", "r");
    char text[8] = {};
    EXPECT_EQ(std::string(text, reader ? fread(text, 1, sizeof text, reader->fd) : 0), "new");
    EXPECT_TRUE(g_waited);
    release_writer();  // when the reader did not wait
    int status = -1;
    EXPECT_TRUE(g_released && waitpid(writer, &status, 0) == writer && WIFEXITED(status) &&
                WEXITSTATUS(status) == 0);
    close(committed[0]), close(release[1]);
}

}  // namespace
}  // namespace jx::test
