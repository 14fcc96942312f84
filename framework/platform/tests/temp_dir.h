// A fresh directory under /tmp for one test, removed with everything in it.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TempDir {
public:
    TempDir() {
        char pattern[] = "/tmp/jaxel-platform-XXXXXX";
        if (mkdtemp(pattern) != nullptr) {
            path_ = pattern;
        }
    }
    ~TempDir() {
        std::error_code ignored;
        if (!path_.empty()) {
            std::filesystem::remove_all(path_, ignored);
        }
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    bool ok() const { return !path_.empty(); }
    std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
    std::string path_;
};
