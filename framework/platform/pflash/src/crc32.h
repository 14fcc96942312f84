#ifndef PFLASH_CRC32_H
#define PFLASH_CRC32_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* CRC-32 (IEEE 802.3, reflected); pass 0 to start, the last result to continue. */
uint32_t pf_crc32(uint32_t crc, const void *data, size_t len);

#ifdef __cplusplus
}
#endif

#endif
