#ifndef PFLASH_RECORD_H
#define PFLASH_RECORD_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/types.h>

/*
 * A slot file is a 32-byte header followed by the content. Header fields,
 * little-endian: magic "PFLR", format version, 64-bit sequence number, content
 * length, CRC-32 of the content, reserved zero, CRC-32 of the 28 bytes before.
 */
#define PF_HEADER_SIZE 32u
#define PF_MAGIC 0x524C4650u
#define PF_VERSION 1u

#define PF_RECORD_NONE 0
#define PF_RECORD_VALID 1

struct pf_record {
    uint64_t seq;
    uint32_t len;
    uint32_t crc;
    char *data; /* len bytes and a NUL, g_malloc'd */
};

void pf_header_encode(unsigned char raw[PF_HEADER_SIZE], uint64_t seq, uint32_t len, uint32_t crc);
/* 0 when magic, version and header checksum hold; fills seq, len and crc. */
int pf_header_decode(const unsigned char raw[PF_HEADER_SIZE], struct pf_record *out);

/*
 * PF_RECORD_VALID with *out filled when the slot holds a whole record whose
 * checksums hold, PF_RECORD_NONE when it is missing, torn or foreign, or a
 * negative PFLASH_ERR_* code when it cannot be read.
 */
int pf_record_load(const char *slot_path, struct pf_record *out);

/* Writes a whole record into the slot and syncs it; a PFLASH_ERR_* code.
 * *created tells whether the slot file was new. */
int pf_record_store(const char *slot_path, uint64_t seq, const void *buf, uint32_t len, mode_t mode,
                    bool *created);

/* True when buf/len is exactly the record's content. */
bool pf_record_matches(const struct pf_record *record, const char *buf, uint32_t len);

void pf_record_clear(struct pf_record *record);

#endif
