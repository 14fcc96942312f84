#include "slots.h"

#include <string.h>

#include "fileio.h"
#include "pflash.h"

static int pick_newest(const int found[2], const struct pf_record records[2])
{
    if (found[0] == PF_RECORD_VALID && found[1] == PF_RECORD_VALID) {
        return records[1].seq > records[0].seq ? 1 : 0;
    }
    if (found[0] == PF_RECORD_VALID) {
        return 0;
    }
    return found[1] == PF_RECORD_VALID ? 1 : -1;
}

int pf_slots_newest(const struct pf_paths *paths, struct pf_record *out, int *index)
{
    struct pf_record records[2];
    int found[2] = {PF_RECORD_NONE, PF_RECORD_NONE};
    int rc = PF_RECORD_NONE;
    int i;

    memset(records, 0, sizeof records);
    memset(out, 0, sizeof *out);
    *index = -1;
    for (i = 0; i < 2 && rc >= 0; i++) {
        found[i] = pf_record_load(paths->slot[i], &records[i]);
        rc = found[i] < 0 ? found[i] : rc;
    }
    if (rc >= 0) {
        *index = pick_newest(found, records);
    }
    if (*index >= 0) {
        *out = records[*index];
        memset(&records[*index], 0, sizeof records[*index]);
        rc = PF_RECORD_VALID;
    }
    pf_record_clear(&records[0]);
    pf_record_clear(&records[1]);
    return rc;
}

int pf_slots_append(const struct pf_paths *paths, const void *buf, uint32_t len, mode_t mode)
{
    struct pf_record newest;
    int index;
    uint64_t seq;
    bool created = false;
    int rc = pf_slots_newest(paths, &newest, &index);

    if (rc < 0) {
        return rc;
    }
    seq = rc == PF_RECORD_VALID ? newest.seq + 1 : 1;
    pf_record_clear(&newest);
    rc = pf_record_store(paths->slot[index < 0 ? 0 : 1 - index], seq, buf, len, mode, &created);
    if (rc == PFLASH_OK && created && pf_sync_dir(paths->dir) != 0) {
        rc = PFLASH_ERR_IO;
    }
    return rc;
}
