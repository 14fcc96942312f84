#include <string>

#include <gtest/gtest.h>

#include "frame/module_list.h"
#include "jaxel.h"

namespace {

JxModuleItem *append_item(const std::string &short_name) {
    auto *item = g_new0(JxModuleItem, 1);
    g_strlcpy(item->short_name, short_name.c_str(), sizeof item->short_name);
    jx::jx_append_module_item(item);
    return item;
}

TEST(ModuleListTest, ShortNamesAreComparedOverTheirFirst64Characters) {
    EXPECT_EQ(jx::jx_find_module_item("net.conf"), nullptr);

    const std::string long_name(100, 'n');
    JxModuleItem *item = append_item(long_name);
    EXPECT_EQ(std::string(item->short_name), long_name.substr(0, 95));

    EXPECT_EQ(jx::jx_find_module_item(long_name.c_str()), item);
    EXPECT_EQ(jx::jx_find_module_item((long_name.substr(0, 64) + "other").c_str()), item);
    EXPECT_EQ(jx::jx_find_module_item(long_name.substr(0, 64).c_str()), item);

    std::string differs_early = long_name;
    differs_early[63] = 'x';
    EXPECT_EQ(jx::jx_find_module_item(differs_early.c_str()), nullptr);
    EXPECT_EQ(jx::jx_find_module_item(long_name.substr(0, 63).c_str()), nullptr);
    EXPECT_EQ(jx::jx_find_module_item(nullptr), nullptr);
}

TEST(ModuleListTest, TheFirstOfTwoItemsAgreeingIn64CharactersAlwaysWins) {
    const std::string prefix(64, 'p');
    JxModuleItem *other = append_item("other");
    JxModuleItem *a = append_item(prefix + "a");
    append_item(prefix + "b");

    EXPECT_EQ(jx::jx_find_module_item((prefix + "a").c_str()), a);
    EXPECT_EQ(jx::jx_find_module_item((prefix + "b").c_str()), a);
    EXPECT_EQ(jx::jx_find_module_item(prefix.c_str()), a);
    EXPECT_EQ(jx::jx_find_module_item("other"), other);
    EXPECT_EQ(g_slist_length(jx::g_jx_reg_list), 3u);
}

}  // namespace
