#include <cstddef>

#include <gtest/gtest.h>

#include "jaxel.h"

namespace {

// The records are binary contract on both targets, 32-bit ARM and x86-64: the
// sizes and the offsets that depend on alignment padding.
constexpr bool kLp64 = sizeof(void *) == 8;
static_assert(sizeof(JxModuleItem) == 376 && offsetof(JxModuleItem, callback) == 360);
static_assert(sizeof(JxItemCfg) == (kLp64 ? 64 : 40) &&
              offsetof(JxItemCfg, privilege) == (kLp64 ? 40 : 24));
static_assert(sizeof(JxFile) == (kLp64 ? 800 : 788) &&
              offsetof(JxFile, mode) == (kLp64 ? 780 : 776));
// The load-request code alone lies outside the family that starts at -4000000.
static_assert(JX_ERR_PARAM1 == -4000000 && JX_ERR_LOAD_REQ == -4999981);

TEST(Contract, SharedLibraryServesTheExportedCalls) {
    ASSERT_EQ(jx_set_module_name("contract"), 0);
    EXPECT_STREQ(jx_get_module_name(), "contract");
    EXPECT_EQ(jx_wirte_cnt_get(7), UINT64_MAX);
}

}  // namespace
