// Locks of the library. The order is fixed by the types: a FileLock can only be
// taken while a LibraryLock is held, so every operation that changes a file
// goes reboot test, library mutex, flock, and unwinds in reverse.
#pragma once

#include <cstdint>

namespace jx {

// Exclusive flock on fd, waiting by polling while another holder has it; fd <=
// 0 is ignored. False (logged) on any failure other than contention.
bool lock_fd(int fd) noexcept;
void unlock_fd(int fd) noexcept;
// The same lock, polled for at most wait_ms milliseconds; false when it stayed busy.
bool lock_fd_within(int fd, uint32_t wait_ms) noexcept;

// True while a root-owned reboot flag exists.
bool reboot_flag_set() noexcept;

// 0, or JX_ERR_REBOOTING when a reboot is in progress; with `log` the refusal
// is written to the system log.
int32_t reboot_guard(bool log) noexcept;

class LibraryLock {
public:
    LibraryLock() noexcept;
    ~LibraryLock();
    LibraryLock(const LibraryLock &) = delete;
    LibraryLock &operator=(const LibraryLock &) = delete;
};

// Non-zero while this thread holds the library mutex, and a new value at each
// hold: what one call worked out may be reused within the same call.
uint64_t library_hold() noexcept;

class FileLock {
public:
    FileLock(const LibraryLock &held, int fd) noexcept;
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

private:
    int fd_;
};

// The library mutex and then the flock of the file being changed.
class FileOperationLock {
public:
    explicit FileOperationLock(int fd) noexcept : library_(), file_(library_, fd) {}

private:
    LibraryLock library_;
    FileLock file_;
};

// jx_exit: takes the library mutex for good; every later operation waits.
int32_t stop_library() noexcept;

// Descriptor of the registration table, -1 until start-up opens it.
int reg_table_fd() noexcept;
void set_reg_table_fd(int fd) noexcept;

// The flock of a registration table (by default the process's own); it never
// takes the library mutex.
class TableLock {
public:
    explicit TableLock(int fd = reg_table_fd()) noexcept;
    ~TableLock();
    TableLock(const TableLock &) = delete;
    TableLock &operator=(const TableLock &) = delete;

private:
    int fd_;
};

}  // namespace jx
