#include "jaxel.h"

// Every prototype must be callable from C exactly as declared, and the records
// must zero-initialise as C aggregates.
int32_t (*const jaxel_c99_fwrite)(const void *, uint32_t, uint32_t, JxFile *) = jx_fwrite;
GKeyFile *(*const jaxel_c99_open_key_file)(const char *, int, int) = jx_open_key_file;
const JxFile jaxel_c99_file = {0};
const JxItemCfg jaxel_c99_cfg = {0};
const char jaxel_c99_version[] = JAXEL_VERSION_STRING;
