#include "record.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <glib.h>

#include "crc32.h"
#include "fileio.h"
#include "pflash.h"

static void put32(unsigned char *p, uint32_t v)
{
    p[0] = (unsigned char)v;
    p[1] = (unsigned char)(v >> 8);
    p[2] = (unsigned char)(v >> 16);
    p[3] = (unsigned char)(v >> 24);
}

static uint32_t get32(const unsigned char *p)
{
    return (uint32_t)p[0] | (uint32_t)p[1] << 8 | (uint32_t)p[2] << 16 | (uint32_t)p[3] << 24;
}

void pf_header_encode(unsigned char raw[PF_HEADER_SIZE], uint64_t seq, uint32_t len, uint32_t crc)
{
    put32(raw, PF_MAGIC);
    put32(raw + 4, PF_VERSION);
    put32(raw + 8, (uint32_t)seq);
    put32(raw + 12, (uint32_t)(seq >> 32));
    put32(raw + 16, len);
    put32(raw + 20, crc);
    put32(raw + 24, 0);
    put32(raw + 28, pf_crc32(0, raw, 28));
}

int pf_header_decode(const unsigned char raw[PF_HEADER_SIZE], struct pf_record *out)
{
    if (get32(raw + 28) != pf_crc32(0, raw, 28) || get32(raw) != PF_MAGIC ||
        get32(raw + 4) != PF_VERSION) {
        return -1;
    }
    out->seq = (uint64_t)get32(raw + 8) | (uint64_t)get32(raw + 12) << 32;
    out->len = get32(raw + 16);
    out->crc = get32(raw + 20);
    return 0;
}

static int load_content(int fd, struct pf_record *out)
{
    size_t got = 0;
    char *buf = pf_alloc_content(out->len);
    if (buf == NULL) {
        return errno == EFBIG ? PF_RECORD_NONE : PFLASH_ERR_NO_MEMORY;
    }
    if (pf_pread_full(fd, buf, out->len, PF_HEADER_SIZE, &got) != 0) {
        g_free(buf);
        return PFLASH_ERR_IO;
    }
    if (got != out->len || pf_crc32(0, buf, got) != out->crc) {
        g_free(buf);
        return PF_RECORD_NONE;
    }
    buf[got] = '\0';
    out->data = buf;
    return PF_RECORD_VALID;
}

static int load_from(int fd, struct pf_record *out)
{
    unsigned char raw[PF_HEADER_SIZE];
    struct stat st;
    size_t got = 0;

    if (fstat(fd, &st) != 0) {
        return PFLASH_ERR_IO;
    }
    if (!S_ISREG(st.st_mode)) {
        errno = EINVAL;
        return PFLASH_ERR_IO;
    }
    if (pf_pread_full(fd, raw, sizeof raw, 0, &got) != 0) {
        return PFLASH_ERR_IO;
    }
    if (got != sizeof raw || pf_header_decode(raw, out) != 0 ||
        (uint64_t)st.st_size != PF_HEADER_SIZE + (uint64_t)out->len) {
        return PF_RECORD_NONE;
    }
    return load_content(fd, out);
}

int pf_record_load(const char *slot_path, struct pf_record *out)
{
    int fd;
    int rc;

    memset(out, 0, sizeof *out);
    fd = pf_open(slot_path, O_RDONLY | PF_FILE_FLAGS, 0);
    if (fd < 0) {
        return errno == ENOENT ? PF_RECORD_NONE : PFLASH_ERR_IO;
    }
    rc = load_from(fd, out);
    pf_close_quiet(fd);
    if (rc != PF_RECORD_VALID) {
        pf_record_clear(out);
    }
    return rc;
}

static int store_into(int fd, uint64_t seq, const void *buf, uint32_t len)
{
    unsigned char raw[PF_HEADER_SIZE];

    pf_header_encode(raw, seq, len, pf_crc32(0, buf, len));
    if (pf_pwrite_full(fd, raw, sizeof raw, 0) != 0 ||
        pf_pwrite_full(fd, buf, len, PF_HEADER_SIZE) != 0 || pf_fsync(fd) != 0) {
        return PFLASH_ERR_IO;
    }
    return PFLASH_OK;
}

int pf_record_store(const char *slot_path, uint64_t seq, const void *buf, uint32_t len, mode_t mode,
                    bool *created)
{
    const int fd = pf_open_or_create(slot_path, O_WRONLY | O_TRUNC | PF_FILE_FLAGS, mode, created);
    int rc;

    if (fd < 0) {
        return PFLASH_ERR_IO;
    }
    rc = pf_check_regular(fd) == 0 ? store_into(fd, seq, buf, len) : PFLASH_ERR_IO;
    if (rc != PFLASH_OK) {
        pf_close_quiet(fd);
        return rc;
    }
    return close(fd) == 0 ? PFLASH_OK : PFLASH_ERR_IO;
}

bool pf_record_matches(const struct pf_record *record, const char *buf, uint32_t len)
{
    return record->len == len && (len == 0 || memcmp(record->data, buf, len) == 0);
}

void pf_record_clear(struct pf_record *record)
{
    g_free(record->data);
    memset(record, 0, sizeof *record);
}
