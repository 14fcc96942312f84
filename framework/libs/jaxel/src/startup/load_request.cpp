#include <unistd.h>

#include "frame/frame.h"
#include "jaxel.h"
#include "startup/startup.h"

namespace {

constexpr uint32_t kFactoryRequest = 1;

}  // namespace

extern "C" int32_t jx_factory_load_req(uint32_t request) noexcept {
    const char *word = jx::kClearedWord;
    if (request == kFactoryRequest) {
        if (::access(jx::kRecoverPointPath, F_OK) != 0) {
            return JX_ERR_NO_RECOVER_POINT;
        }
        word = jx::kFactoryWord;
    }
    return jx_set_content(jx::kLoadCfgFlagPath, word, sizeof jx::kFactoryWord);
}
