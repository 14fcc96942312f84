#include <cstddef>

#include <gtest/gtest.h>

#include "jaxel.h"

namespace {

// The records are binary contract on both targets: 32-bit ARM and x86-64.
constexpr bool kLp64 = sizeof(void *) == 8;

static_assert(offsetof(JxModuleItem, protect_mode) == 96);
static_assert(offsetof(JxModuleItem, package_size) == 100);
static_assert(offsetof(JxModuleItem, package_path) == 104);
static_assert(offsetof(JxModuleItem, callback) == 360);
static_assert(offsetof(JxModuleItem, privilege) == 368);
static_assert(sizeof(JxModuleItem) == 376);

static_assert(offsetof(JxItemCfg, path) == (kLp64 ? 8 : 4));
static_assert(offsetof(JxItemCfg, protect_mode) == (kLp64 ? 16 : 8));
static_assert(offsetof(JxItemCfg, package_size) == (kLp64 ? 20 : 12));
static_assert(offsetof(JxItemCfg, callback) == (kLp64 ? 24 : 16));
static_assert(offsetof(JxItemCfg, package_path) == (kLp64 ? 32 : 20));
static_assert(offsetof(JxItemCfg, privilege) == (kLp64 ? 40 : 24));
static_assert(offsetof(JxItemCfg, callback_obj) == (kLp64 ? 48 : 32));
static_assert(offsetof(JxItemCfg, callback_method) == (kLp64 ? 56 : 36));
static_assert(sizeof(JxItemCfg) == (kLp64 ? 64 : 40));

static_assert(offsetof(JxFile, file_no) == (kLp64 ? 8 : 4));
static_assert(offsetof(JxFile, file_path) == (kLp64 ? 12 : 8));
static_assert(offsetof(JxFile, file_name) == (kLp64 ? 268 : 264));
static_assert(offsetof(JxFile, package_name) == (kLp64 ? 524 : 520));
static_assert(offsetof(JxFile, mode) == (kLp64 ? 780 : 776));
static_assert(offsetof(JxFile, item) == (kLp64 ? 792 : 784));
static_assert(sizeof(JxFile) == (kLp64 ? 800 : 788));

static_assert(JX_ERR_PARAM1 == -4000000 && JX_ERR_PARAM5 == -3999996);
static_assert(JX_ERR_REBOOTING == -3999972 && JX_ERR_LOAD_REQ == -4999981);

TEST(Contract, SharedLibraryServesTheExportedCalls) {
    ASSERT_EQ(jx_set_module_name("contract"), 0);
    EXPECT_STREQ(jx_get_module_name(), "contract");
    EXPECT_EQ(jx_wirte_cnt_get(7), UINT64_MAX);
}

}  // namespace
