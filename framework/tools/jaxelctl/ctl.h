// What the commands of jaxelctl share: the options, the exit bits and the report.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "exit_codes.h"
#include "file_state.h"

namespace jx::tools {

struct CtlOptions {
    bool quiet = false;
    bool verbose = false;
    bool json = false;
    bool dry_run = false;
    bool check = false;
    int wait_sec = 10;
    uint32_t wait_ms() const { return static_cast<uint32_t>(wait_sec) * 1000u; }
};

struct Row {
    std::string path;
    char mode = '?';
    FileState state;
    std::string action = "none";
    bool has_syncd = false;
    bool pending = false;
    int64_t last_sync = 0;
};

struct Report {
    std::string command;
    std::vector<Row> rows;
    std::vector<std::string> problems;
    std::string error;
    bool rebooting = false;  // noted by dry runs, which a reboot does not stop
    int exit_code = kExitClean;

    void fail(const std::string &message, int bits) {
        error = message;
        exit_code |= bits;
    }
};

void print_report(const Report &report, const CtlOptions &options);

}  // namespace jx::tools
