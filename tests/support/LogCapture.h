// Records every Android log line written while an instance is alive, so tests can assert exact
// messages, priorities and tags. Installs itself as liblog's logger and lowers the minimum
// priority to VERBOSE; the destructor restores stderr logging. One instance at a time.
#pragma once

#include <android/log.h>

#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace wws_test {

struct LogLine {
    int priority;
    std::string tag;
    std::string message;
    std::thread::id thread;  // the thread that logged it
};

class LogCapture {
  public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> lines() const;
    // Messages of one priority and tag, in order.
    std::vector<std::string> messages(int priority, const std::string& tag) const;
    bool contains(const std::string& message) const;
    // Whether the calling thread logged anything: "this call logs nothing", while the code's
    // other threads may log at any moment.
    bool loggedOnThisThread() const;
    bool contains(int priority, const std::string& tag, const std::string& message) const;
    size_t count(const std::string& message) const;
    void clear();
    // Runs hook on the logging thread after each line is recorded, outside the capture's lock: a
    // test acts at the moment the code under test logs a given line (a point of interleaving).
    void setHook(std::function<void(const LogLine&)> hook);

  private:
    static void logger(const struct __android_logger_data* data, const char* message);
    void append(int priority, const char* tag, const char* message);

    mutable std::mutex mLock;
    std::vector<LogLine> mLines;  // guarded by mLock
    std::function<void(const LogLine&)> mHook;  // guarded by mLock
};

}  // namespace wws_test
