#define LOG_TAG "AspEventMonitor"

#include "AspEventHandler.h"

#include <log/log.h>
#include <sys/time.h>

#include <cstring>

namespace velmar {

namespace {

constexpr const char* kStateName = "ASPState";
constexpr int32_t kThreadPriority = 10;  // ANDROID_PRIORITY_BACKGROUND
constexpr int kProcessorActiveEvent = 2;

class WallClockMs : public AspClock {
  public:
    uint32_t nowMs() override {
        timeval now{};
        gettimeofday(&now, nullptr);
        return static_cast<uint32_t>(now.tv_sec) * 1000u + static_cast<uint32_t>(now.tv_usec) / 1000u;
    }
};

}  // namespace

std::shared_ptr<AspClock> wallClockMs() {
    return std::make_shared<WallClockMs>();
}

AspEventHandler::AspEventHandler(Callback callback, void* user, std::shared_ptr<AspClock> clock,
                                 int64_t pollIntervalNs)
    : android::Thread(true /*canCallJava*/),
      mCallback(callback),
      mUserData(user),
      mAspActiveSinceMs(0),
      mClock(clock != nullptr ? std::move(clock) : wallClockMs()),
      mPollIntervalNs(pollIntervalNs),
      mWake(android::Condition::PRIVATE) {}

AspEventHandler::~AspEventHandler() {
    stop();
    android::Mutex::Autolock lock(mReportLock);
    mCallback = nullptr;
    mUserData = nullptr;
}

void AspEventHandler::report_l(int64_t value) {
    if (mCallback != nullptr) mCallback(mUserData, kStateName, value);
}

void AspEventHandler::start() {
    if (isRunning()) ALOGE("AspEventHandler has already started");
    {
        android::Mutex::Autolock lock(mReportLock);
        report_l(0);
    }
    if (run("AspEventHandler", kThreadPriority, 0) != android::NO_ERROR) {
        ALOGE("Error starting thread");
    }
}

void AspEventHandler::stop() {
    if (isRunning()) {
        requestExit();
        {
            android::Mutex::Autolock lock(mWakeLock);
            mWake.signal();
        }
        android::status_t status = requestExitAndWait();
        if (status != android::NO_ERROR) {
            ALOGE("Error stopping AspEventMonitor thread: %d", status);
        }
    }
    android::Mutex::Autolock lock(mReportLock);
    if (mAspActiveSinceMs != 0) {
        report_l(0);
        mAspActiveSinceMs = 0;
    }
}

void AspEventHandler::onEvent(int event, unsigned int size, const void* data) {
    // Under the report lock: stop() cannot complete between this check and the report.
    android::Mutex::Autolock lock(mReportLock);
    if (!isRunning()) {
        ALOGE("ignore event from ASP, because AspEventHandler is not running");
        return;
    }
    if (event != kProcessorActiveEvent) return;
    ALOGD("AspEventHandler onEvent (%d, %p)", event, data);
    if (size != sizeof(uint32_t)) return;
    if (data == nullptr) {
        ALOGE("Error onEvent() arg should not be NULL");
        return;
    }
    uint32_t value;
    memcpy(&value, data, sizeof(value));
    if (value != 0) return;
    report_l(1);
    // 0 means "none outstanding": a report at exactly 0 ms is taken as 1 ms.
    const uint32_t now = mClock->nowMs();
    mAspActiveSinceMs = now == 0 ? 1 : now;
}

bool AspEventHandler::threadLoop() {
    {
        android::Mutex::Autolock lock(mReportLock);
        // The age is compared as a 32-bit difference, which stays right when the millisecond
        // clock wraps during the hold.
        if (mAspActiveSinceMs != 0 && mClock->nowMs() - mAspActiveSinceMs > kHoldMs) {
            report_l(0);
            mAspActiveSinceMs = 0;
        }
    }
    if (exitPending()) return false;
    android::Mutex::Autolock lock(mWakeLock);
    if (!exitPending()) mWake.waitRelative(mWakeLock, mPollIntervalNs);
    return true;
}

}  // namespace velmar
