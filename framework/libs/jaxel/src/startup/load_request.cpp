#include <unistd.h>

#include "frame/frame.h"
#include "integrity/integrity.h"
#include "startup/startup.h"

namespace jx {
namespace {

constexpr uint32_t kFactoryRequest = 1;

}  // namespace

int32_t factory_load_req(uint32_t request) noexcept {
    const char *word = kClearedWord;
    if (request == kFactoryRequest) {
        if (::access(kRecoverPointPath, F_OK) != 0) {
            return JX_ERR_NO_RECOVER_POINT;
        }
        word = kFactoryWord;
    }
    return set_content(kLoadCfgFlagPath, word, sizeof kFactoryWord);
}

}  // namespace jx
