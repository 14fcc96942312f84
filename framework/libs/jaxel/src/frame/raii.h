// Owners for the C resources the library handles, so every way out releases them.
#pragma once

#include <cstdio>
#include <memory>
#include <unistd.h>

#include <glib.h>

#include "frame/io.h"

namespace jx {

struct StreamCloser {
    // A close failure has nowhere to go: writers flush and sync before closing.
    void operator()(FILE *stream) const noexcept { (void)io().fclose(stream); }
};
using UniqueStream = std::unique_ptr<FILE, StreamCloser>;

struct GFreer {
    void operator()(void *p) const noexcept { g_free(p); }
};
template <typename T>
using GPtr = std::unique_ptr<T, GFreer>;

struct GErrorFreer {
    void operator()(GError *e) const noexcept { g_error_free(e); }
};
using GErrorPtr = std::unique_ptr<GError, GErrorFreer>;

struct KeyFileFreer {
    void operator()(GKeyFile *k) const noexcept { g_key_file_free(k); }
};
using KeyFilePtr = std::unique_ptr<GKeyFile, KeyFileFreer>;

struct StrvFreer {
    void operator()(gchar **v) const noexcept { g_strfreev(v); }
};
using StrvPtr = std::unique_ptr<gchar *, StrvFreer>;

class UniqueFd {
public:
    UniqueFd() noexcept = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd &&other) noexcept : fd_(other.release()) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept {
        reset(other.release());
        return *this;
    }
    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    int release() noexcept {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    void reset(int fd = -1) noexcept {
        if (fd_ >= 0) {
            (void)io().close(fd_);
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

}  // namespace jx
