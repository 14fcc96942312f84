#include "support/log_capture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <mutex>

#include "frame/io.h"

namespace jx::test {
namespace {

std::mutex g_mutex;
std::vector<LogRecord> g_records;
decltype(Io::syslog) g_saved = nullptr;

// The line is "[pid] file(line): message\n".
std::string message_of(const std::string &line) {
    const std::size_t at = line.find("): ");
    const std::string message = line.substr(at == std::string::npos ? 0 : at + 3);
    return message.ends_with('\n') ? message.substr(0, message.size() - 1) : message;
}

void capture(int priority, const char *format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    std::lock_guard<std::mutex> hold(g_mutex);
    g_records.push_back({priority, text, message_of(text)});
}

}  // namespace

LogCapture::LogCapture() {
    g_saved = io().syslog;
    io().syslog = capture;
    std::lock_guard<std::mutex> hold(g_mutex);
    g_records.clear();
}

LogCapture::~LogCapture() { io().syslog = g_saved; }

std::vector<LogRecord> LogCapture::records() const {
    std::lock_guard<std::mutex> hold(g_mutex);
    return g_records;
}

std::vector<std::string> LogCapture::messages() const {
    std::vector<std::string> out;
    std::ranges::transform(records(), std::back_inserter(out), &LogRecord::message);
    return out;
}

bool LogCapture::contains(const std::string &message) const {
    return std::ranges::count(messages(), message) > 0;
}

}  // namespace jx::test
