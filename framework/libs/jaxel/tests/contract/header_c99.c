#include "jaxel.h"

/* Every prototype must be callable from C exactly as declared. */
static int32_t (*const kFwrite)(const void *, uint32_t, uint32_t, JxFile *) = jx_fwrite;
static GKeyFile *(*const kOpenKeyFile)(const char *, int, int) = jx_open_key_file;

int jaxel_header_c99_probe(void);
int jaxel_header_c99_probe(void) {
    JxFile file = {0};
    JxItemCfg cfg = {0};
    (void)file;
    (void)cfg;
    return kFwrite != 0 && kOpenKeyFile != 0;
}
