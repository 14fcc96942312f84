// What the tool tests share: one registered E file "a" (and an F file), the
// tools run as programs, and a look at every file of the sandbox.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/support.h"

namespace jx::test {

inline const std::string kWork = "/opt/ulx/pram/md_a";
inline const std::string kDurable = "/opt/ulx/save/md_a";
inline const std::string kFactoryLive = "/opt/ulx/pram/f.conf";

// Registers "a" (E) and the F file (holding "live") in a child, and writes
// `text` to "a" through the library.
void lay_registered(const std::string &text);
// Writes `text` to a registered short name through the library, in a child.
void write_through_library(const char *short_name, const std::string &text);

struct ToolRun {
    int exit = -1;
    std::string out;
};
ToolRun run_tool(const char *program, const std::vector<std::string> &args);
// Starts a tool in the background; its pid, 0 when it could not start.
int start_tool(const char *program, const std::vector<std::string> &args);

std::map<std::string, std::string> all_files();

}  // namespace jx::test
