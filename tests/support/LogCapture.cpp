#include "LogCapture.h"

#include <algorithm>
#include <atomic>

namespace wws_test {

namespace {
std::atomic<LogCapture*> gActive{nullptr};
}

LogCapture::LogCapture() {
    gActive.store(this);
    __android_log_set_logger(&LogCapture::logger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

LogCapture::~LogCapture() {
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    gActive.store(nullptr);
}

void LogCapture::logger(const struct __android_logger_data* data, const char* message) {
    LogCapture* active = gActive.load();
    if (active != nullptr) active->append(data->priority, data->tag, message);
}

void LogCapture::append(int priority, const char* tag, const char* message) {
    LogLine line{priority, tag == nullptr ? "" : tag, message == nullptr ? "" : message,
                 std::this_thread::get_id()};
    std::function<void(const LogLine&)> hook;
    {
        std::lock_guard<std::mutex> guard(mLock);
        mLines.push_back(line);
        hook = mHook;
    }
    if (hook) hook(line);
}

void LogCapture::setHook(std::function<void(const LogLine&)> hook) {
    std::lock_guard<std::mutex> guard(mLock);
    mHook = std::move(hook);
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mLines;
}

std::vector<std::string> LogCapture::messages(int priority, const std::string& tag) const {
    std::vector<std::string> found;
    for (const LogLine& line : lines()) {
        if (line.priority == priority && line.tag == tag) found.push_back(line.message);
    }
    return found;
}

bool LogCapture::loggedOnThisThread() const {
    for (const LogLine& line : lines()) {
        if (line.thread == std::this_thread::get_id()) return true;
    }
    return false;
}

bool LogCapture::contains(const std::string& message) const {
    return count(message) > 0;
}

bool LogCapture::contains(int priority, const std::string& tag, const std::string& message) const {
    std::vector<std::string> found = messages(priority, tag);
    return std::find(found.begin(), found.end(), message) != found.end();
}

size_t LogCapture::count(const std::string& message) const {
    size_t n = 0;
    for (const LogLine& line : lines()) n += line.message == message ? 1 : 0;
    return n;
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> guard(mLock);
    mLines.clear();
}

}  // namespace wws_test
