// Tests run in a private mount namespace with fresh tmpfs over /opt and
// /dev/shm, so the machine's own directories are never touched.
#pragma once

#include <string>

#include <gtest/gtest.h>

namespace jx::test {

// Enters the namespace and mounts the tmpfs; false (after saying why) on failure.
bool enter_sandbox();

// Empties /opt/ulx and /dev/shm and recreates the tier directories.
void reset_sandbox();

// What a reboot does to the census that lets calls skip the pending check:
// the next call of this process starts a new one, which trusts no record.
void fresh_census();

void write_file(const std::string &path, const std::string &content);
std::string read_file(const std::string &path);
bool exists(const std::string &path);

class SandboxTest : public ::testing::Test {
protected:
    void SetUp() override { reset_sandbox(); }
};

}  // namespace jx::test
