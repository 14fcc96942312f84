#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "journal/record.h"

namespace jx::redo {
namespace {

using Counter = std::atomic<uint32_t>;
static_assert(Counter::is_always_lock_free, "shared between processes, so it must not lock");

constexpr char kCensusMagic[8] = {'J', 'X', 'C', 'E', 'N', 'S', 'U', '1'};
constexpr std::size_t kBootIdSize = 36;

}  // namespace

// One per boot, in a file of the working area that every process maps.
struct Census {
    char magic[8];
    char boot_id[kBootIdSize];
    Counter in_flight;  // calls between making their record and removing it
    Counter marks;      // records left behind, counted up forever
    Counter cleaned;    // `marks` as it was when the directory was last seen empty
};

namespace {

std::atomic<Census *> g_census{nullptr};
std::atomic<bool> g_given_up{false};

// The census changes no file of any caller and a failure only loses the
// shortcut, so its calls bypass the seam: injected faults stay on real work.
struct RawFd {
    int fd;
    ~RawFd() {
        if (fd >= 0) {
            (void)::close(fd);
        }
    }
};

bool read_boot_id(char out[kBootIdSize]) noexcept {
    const RawFd id{::open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC)};
    return id.fd >= 0 && ::read(id.fd, out, kBootIdSize) == static_cast<ssize_t>(kBootIdSize);
}

// Only a private file of ours may vouch that no record exists; one of another
// size (a new one) is sized for the census, whose content is checked next.
bool trusted(int fd) noexcept {
    struct stat st;
    return fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_nlink == 1 &&
           st.st_uid == geteuid() && (st.st_mode & (S_IRWXG | S_IRWXO)) == 0 &&
           (st.st_size == sizeof(Census) || ftruncate(fd, sizeof(Census)) == 0);
}

// A census from an earlier boot (or none yet) knows nothing of the records a
// power cut left: it starts with one mark, so the directory must be seen empty
// before it vouches for anything. Taken under the file's lock, so the first
// process of a boot resets it before any other maps it.
Census *map_census(int fd) noexcept {
    char boot_id[kBootIdSize];
    if (!read_boot_id(boot_id) || ::flock(fd, LOCK_EX) != 0) {
        return nullptr;
    }
    void *at = trusted(fd)
                   ? mmap(nullptr, sizeof(Census), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                   : MAP_FAILED;
    auto *census = at == MAP_FAILED ? nullptr : static_cast<Census *>(at);
    if (census != nullptr && (std::memcmp(census->magic, kCensusMagic, sizeof kCensusMagic) != 0 ||
                              std::memcmp(census->boot_id, boot_id, kBootIdSize) != 0)) {
        census->in_flight.store(0);
        census->marks.store(1);
        census->cleaned.store(0);
        std::memcpy(census->boot_id, boot_id, kBootIdSize);
        std::memcpy(census->magic, kCensusMagic, sizeof kCensusMagic);
    }
    (void)::flock(fd, LOCK_UN);
    return census;
}

// Mapped at most once per process (a racing thread's extra map is dropped);
// a working area that does not exist yet is looked for again next time.
Census *shared_census() noexcept {
    Census *census = g_census.load(std::memory_order_acquire);
    if (census != nullptr || g_given_up.load()) {
        return census;
    }
    const RawFd file{
        ::open(kCensusPath, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR)};
    if (file.fd < 0) {
        g_given_up.store(errno != ENOENT);
        return nullptr;
    }
    Census *mapped = map_census(file.fd);
    if (mapped == nullptr) {
        g_given_up.store(true);
        return nullptr;
    }
    Census *expected = nullptr;
    if (!g_census.compare_exchange_strong(expected, mapped)) {
        (void)munmap(mapped, sizeof(Census));
        return expected;
    }
    return mapped;
}

}  // namespace

bool census_says_none() noexcept {
    const Census *shared = g_census.load(std::memory_order_acquire);
    return shared != nullptr && shared->in_flight.load() == 0 &&
           shared->cleaned.load() == shared->marks.load();
}

bool census_busy() noexcept {
    const Census *shared = shared_census();
    return shared == nullptr || shared->in_flight.load() != 0;
}

uint32_t census_marks() noexcept {
    const Census *shared = shared_census();
    return shared != nullptr ? shared->marks.load() : 0;
}

void census_seen_empty(uint32_t marks_before) noexcept {
    if (Census *shared = shared_census()) {
        shared->cleaned.store(marks_before);
    }
}

RecordInFlight::RecordInFlight() noexcept : census_(shared_census()) {
    if (census_ != nullptr) {
        census_->in_flight.fetch_add(1);
    }
}

RecordInFlight::~RecordInFlight() {
    if (census_ == nullptr) {
        return;
    }
    if (!gone_) {
        census_->marks.fetch_add(1);  // before in_flight drops, so no check misses it
    }
    census_->in_flight.fetch_sub(1);
}

void forget_census() noexcept {
    if (Census *shared = g_census.exchange(nullptr)) {
        (void)munmap(shared, sizeof(Census));
    }
    g_given_up.store(false);
}

}  // namespace jx::redo
