#ifndef PFLASH_SLOTS_H
#define PFLASH_SLOTS_H

#include <stdint.h>
#include <sys/types.h>

#include "paths.h"
#include "record.h"

/*
 * The valid record with the highest sequence number: PF_RECORD_VALID with *out
 * owning it, PF_RECORD_NONE when neither slot holds one, or a negative
 * PFLASH_ERR_* code when a slot cannot be read.
 */
int pf_slots_newest(const struct pf_paths *paths, struct pf_record *out, int *index);

/* Stores buf/len as the next record, into the slot not holding the newest
 * valid one, durably; a PFLASH_ERR_* code. */
int pf_slots_append(const struct pf_paths *paths, const void *buf, uint32_t len, mode_t mode);

#endif
