// The census lets a call skip the pending check without a system call; it must
// never vouch while a record waits, whatever state its file is found in.
#include <fcntl.h>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "journal/journal.h"
#include "journal/record.h"
#include "support/support.h"

namespace jx::test {
namespace {

const std::string kTarget = "/opt/ulx/pram/census_t";
const std::string kCensus = redo::kCensusPath;

// The record a call that never finished leaves: planted behind the census's
// back, so only a census that does not vouch lets the check find it.
void plant_record(const std::string &content) {
    const Transaction::Entry entry{true,    true, kTarget.c_str(), content.data(), content.size(),
                                   nullptr, 0,    content.size()};
    std::size_t length = 0;
    const GPtr<uint8_t> record = redo::encode(&entry, 1, length);
    write_file(redo_record_path(kTarget.c_str()),
               std::string(reinterpret_cast<const char *>(record.get()), length));
}

void flip_byte(off_t at) {
    const int fd = open(kCensus.c_str(), O_RDWR);
    char byte = 0;
    if (pread(fd, &byte, 1, at) == 1) {
        byte ^= 1;
        (void)pwrite(fd, &byte, 1, at);
    }
    close(fd);
}

TEST(Census, NeverVouchesFromAFileItCannotTrust) {
    const std::pair<const char *, std::function<void()>> rows[] = {
        {"trusted", [] {}},  // the one row where the planted record stays unseen
        {"from another boot", [] { flip_byte(8); }},
        {"magic damaged", [] { flip_byte(0); }},
        {"cut short", [] { (void)truncate(kCensus.c_str(), 10); }},
        {"readable by others", [] { (void)chmod(kCensus.c_str(), 0644); }},
        {"owned by another user", [] { (void)chown(kCensus.c_str(), 1, 1); }},
        {"a second link", [] { (void)link(kCensus.c_str(), (kCensus + ".2").c_str()); }},
        {"a symbolic link",
         [] {
             (void)rename(kCensus.c_str(), (kCensus + ".real").c_str());
             (void)symlink((kCensus + ".real").c_str(), kCensus.c_str());
         }},
    };
    for (const auto &[name, damage] : rows) {
        reset_sandbox();
        const std::string want = name == std::string("trusted") ? "old" : "new";
        EXPECT_EQ(in_child([&] {
                      recover_all();  // start-up: the census begins and vouches
                      write_file(kTarget, "old");
                      plant_record("new");
                      damage();
                      redo::forget_census();
                      (void)redo::census_marks();  // maps it again, through the checks
                      (void)recover_pending(kTarget.c_str());
                      return read_file(kTarget) == want ? 0 : 1;
                  }),
                  0)
            << name;
    }
}

// A record start-up cannot take (another call holds it) keeps the census from
// vouching, and so does one its maker left behind.
bool start_up_passes_a_held_record() {
    plant_record("held");
    fresh_census();
    const int holder = open(redo_record_path(kTarget.c_str()).c_str(), O_RDWR);
    const bool held = flock(holder, LOCK_EX) == 0;
    recover_all();
    close(holder);
    const bool vouched = redo::census_says_none();
    (void)recover_pending(kTarget.c_str());
    return held && !vouched && read_file(kTarget) == "held";
}

// Each step's expectation of the census, in order; the child reports the first
// step that fails.
TEST(Census, VouchesAgainOnlyOnceTheRecordDirectoryIsSeenEmpty) {
    reset_sandbox();
    EXPECT_EQ(in_child([] {
                  recover_all();
                  const bool vouched_at_start = redo::census_says_none();
                  bool vouched_in_flight = true;
                  {
                      redo::RecordInFlight flight;
                      vouched_in_flight = redo::census_says_none();
                      flight.gone(true);
                  }
                  const bool vouched_after_removal = redo::census_says_none();
                  plant_record("new");
                  { redo::RecordInFlight left_behind; }
                  const bool vouched_after_mark = redo::census_says_none();
                  const bool none_while_waiting = redo::no_record_at_all();
                  (void)recover_pending(kTarget.c_str());
                  const bool none_after_finish = redo::no_record_at_all();
                  const bool steps[] = {vouched_at_start,
                                        !vouched_in_flight,
                                        vouched_after_removal,
                                        !vouched_after_mark,
                                        !none_while_waiting,
                                        none_after_finish,
                                        redo::census_says_none(),
                                        read_file(kTarget) == "new",
                                        start_up_passes_a_held_record()};
                  for (int i = 0; i < static_cast<int>(std::size(steps)); ++i) {
                      if (!steps[i]) {
                          return i + 1;
                      }
                  }
                  return 0;
              }),
              0);
}

}  // namespace
}  // namespace jx::test
