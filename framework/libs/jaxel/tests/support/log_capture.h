// Captures what the library sends to the system log while it is alive.
#pragma once

#include <string>
#include <vector>

namespace jx::test {

struct LogRecord {
    int priority;
    std::string line;     // "[pid] file(line): message\n"
    std::string message;  // the message alone
};

class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    std::vector<LogRecord> records() const;
    std::vector<std::string> messages() const;
    bool contains(const std::string &message) const;
};

}  // namespace jx::test
