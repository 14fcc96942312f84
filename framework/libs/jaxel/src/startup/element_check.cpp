// The configuration array is checked whole before anything is registered, so
// a hostile element cannot leave half a start-up behind.
#include "frame/frame.h"
#include "startup/startup.h"

namespace jx {
namespace {

// The longest companion registration derives from a module file's name.
constexpr const char kLongestSuffix[] = ".bak.sha256";
constexpr const char kPackageSuffix[] = ".tar.gz";

bool paths_fit(const JxItemCfg &element, const char *module_name) noexcept {
    const char *package = element.package_size != 0 ? kPackageSuffix : "";
    return fits(kPathMax,
                {kSaveDir, module_name, "_", element.short_name, package, kLongestSuffix}) &&
           fits(kPathMax, {element.path}) && fits(kPathMax, {element.package_path});
}

bool texts_valid(const JxItemCfg &element) noexcept {
    return valid_table_text(element.path) && valid_table_text(element.package_path) &&
           valid_table_text(element.callback_obj) && valid_table_text(element.callback_method);
}

// An F file is named by its full path, which the existing copy bound refuses
// when too long; any other file by a plain name inside its tier directory.
bool element_valid(const JxItemCfg &element, const char *module_name, int32_t index) noexcept {
    if (element.short_name == nullptr) {
        JX_LOG("input para invalid: cfg[%d].short_name.", index);
        return false;
    }
    const bool name_ok = element.protect_mode == JX_PROTECT_F
                             ? valid_absolute_path(element.short_name)
                             : valid_name(element.short_name);
    if (!name_ok || !texts_valid(element)) {
        JX_LOG("cfg[%d] refused: a name or path the table cannot hold.", index);
        return false;
    }
    if (element.protect_mode != JX_PROTECT_F && !paths_fit(element, module_name)) {
        JX_LOG("cfg[%d] refused: a path does not fit %zu bytes.", index, kPathMax);
        return false;
    }
    return !(element.protect_mode == JX_PROTECT_P && climbs_out(element.path, kPflashDir));
}

}  // namespace

int32_t check_config(const JxItemCfg *cfg, int32_t count, const char *module_name) noexcept {
    if (!valid_name(module_name)) {
        JX_LOG("module name refused: not a plain file name.");
        return JX_ERR_PARAM3;
    }
    for (int32_t i = 0; i < count; ++i) {
        // Elements with an unknown mode are refused by registration itself.
        if ((cfg[i].short_name == nullptr || cfg[i].protect_mode <= JX_PROTECT_F) &&
            !element_valid(cfg[i], module_name, i)) {
            return JX_ERR_PARAM1;
        }
    }
    return JX_OK;
}

}  // namespace jx
