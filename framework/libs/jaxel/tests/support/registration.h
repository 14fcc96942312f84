// Registers module files for a test without going through start-up: the table
// group and the process's list item are made exactly as registration makes
// them, so subsystems can be tested on their own.
#pragma once

#include <string>

#include "jaxel.h"

namespace jx::test {

// Opens the registration table (creating it) and makes it the process's table
// lock descriptor, as start-up does.
void open_reg_table();

// Appends the table group and the list item of `cfg` for `module`; returns the
// working copy's path. Modes R, C, E, S, P, F; the chosen path of C/E/S/P is
// taken as given.
std::string register_for_test(const char *module, const JxItemCfg &cfg);

}  // namespace jx::test
