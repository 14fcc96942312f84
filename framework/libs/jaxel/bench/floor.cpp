#include "floor.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include <openssl/evp.h>

namespace jx::bench {
namespace {

bool sha256_hex(const char *data, std::size_t len, char (&hex)[65]) {
    unsigned char md[EVP_MAX_MD_SIZE];
    unsigned int md_len = 0;
    if (EVP_Digest(data, len, md, &md_len, EVP_sha256(), nullptr) != 1) {
        return false;
    }
    for (unsigned int i = 0; i < md_len; ++i) {
        hex[2 * i] = "0123456789abcdef"[md[i] >> 4];
        hex[2 * i + 1] = "0123456789abcdef"[md[i] & 0x0f];
    }
    hex[64] = '\0';
    return true;
}

bool write_side_file(const std::string &path, const char (&hex)[65]) {
    const int fd = ::open((path + ".sha256").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    const bool ok = fd >= 0 && ::write(fd, hex, sizeof hex) == sizeof hex && ::fsync(fd) == 0;
    return ::close(fd) == 0 && ok;
}

}  // namespace

bool protected_append_floor(int fd, const std::string &path, const char *bytes, std::size_t len) {
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        return false;
    }
    const auto old_len = static_cast<std::size_t>(st.st_size);
    const std::unique_ptr<char[]> content(new char[old_len + len]);
    if (::pread(fd, content.get(), old_len, 0) != static_cast<ssize_t>(old_len)) {
        return false;
    }
    std::memcpy(content.get() + old_len, bytes, len);
    char digest[65];
    char check[65];
    if (!sha256_hex(content.get(), old_len + len, digest) ||
        !sha256_hex(content.get(), old_len + len, check) || std::strcmp(digest, check) != 0 ||
        !write_side_file(path, digest) || ::ftruncate(fd, 0) != 0) {
        return false;
    }
    const auto total = static_cast<ssize_t>(old_len + len);
    return ::pwrite(fd, content.get(), old_len + len, 0) == total && ::fsync(fd) == 0;
}

bool log_write_floor(int fd, const char *bytes, std::size_t len) {
    if (::access("/dev/shm/.Reboot.flag", F_OK) == 0 || ::flock(fd, LOCK_EX) != 0) {
        return false;
    }
    const bool written = ::write(fd, bytes, len) == static_cast<ssize_t>(len);
    return ::flock(fd, LOCK_UN) == 0 && written;
}

}  // namespace jx::bench
