#define LOG_TAG "AspEventMonitor"

#include "AspEventMonitor.h"

#include <binder/IServiceManager.h>
#include <log/log.h>

namespace velmar {

using android::sp;

namespace {
constexpr const char* kServiceName = "audiosignalprocessor";
constexpr int32_t kThreadPriority = 10;             // ANDROID_PRIORITY_BACKGROUND
constexpr int64_t kRetryPauseNs = 500000000;        // half a second between lookups
}  // namespace

AspEventMonitor::AspEventMonitor(Callback callback, void* userData,
                                 std::shared_ptr<AspClock> clock, int64_t pollIntervalNs)
    : android::Thread(true /*canCallJava*/),
      mListenerRegistered(false),
      mEventHandler(new AspEventHandler(callback, userData, std::move(clock), pollIntervalNs)),
      mStopped(false),
      mWake(android::Condition::PRIVATE) {}

AspEventMonitor::~AspEventMonitor() {
    destroy();
}

void AspEventMonitor::start() {
    if (isRunning()) {
        ALOGE("AspEventMonitor has already started");
        return;
    }
    if (mAspService != nullptr) {
        ALOGE("AspEventMonitor has already got");
        return;
    }
    mStopped = false;
    if (run("AspEventMonitor", kThreadPriority, 0) != android::NO_ERROR) {
        ALOGE("Error starting thread");
    } else {
        ALOGD("AspEventMonitor has been started");
    }
    mEventHandler->start();
}

void AspEventMonitor::stop() {
    {
        // From now on a death does not bring the monitor back.
        android::Mutex::Autolock lock(mLock);
        mStopped = true;
    }
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
    {
        // The thread has ended: a death after a later start() must not wait for that start's
        // thread, which searches on and needs mLock.
        android::Mutex::Autolock lock(mLock);
        mThreadEnding = false;
    }
    stopListener();
    ALOGD("AspEventMonitor has been stopped");
    if (mEventHandler != nullptr) mEventHandler->stop();
}

void AspEventMonitor::stopListener() {
    android::Mutex::Autolock lock(mLock);
    if (mAspService != nullptr && mListenerRegistered) {
        mAspService->unregisterListener(this);
        ALOGD("mAspService.unregisterListener()");
    }
    // The death link stays: a death after a stop is ignored (mStopped).
    mAspService.clear();
    mListenerRegistered = false;
}

sp<asp::IAudioSignalProcessor> AspEventMonitor::getAspService() {
    android::Mutex::Autolock lock(mLock);
    if (mAspService != nullptr) return nullptr;
    sp<android::IBinder> binder =
            android::defaultServiceManager()->getService(android::String16(kServiceName));
    if (binder == nullptr) return nullptr;
    ALOGD("audiosignalprocessor binder connected");
    binder->linkToDeath(this, nullptr, 0);
    return asp::IAudioSignalProcessor::asInterface(binder);
}

void AspEventMonitor::onEvent(int event, unsigned int size, const void* data) {
    // The handler lives as long as this monitor; once stopped it ignores events itself.
    mEventHandler->onEvent(event, size, data);
}

void AspEventMonitor::binderDied(const android::wp<android::IBinder>& /*who*/) {
    android::Mutex::Autolock lock(mLock);
    ALOGD("audiosignalprocessor binder died");
    mAspService.clear();
    mListenerRegistered = false;
    if (mStopped) return;  // stopped on purpose: stay stopped
    ALOGD("audiosignalprocessor binder re-connected");
    if (mThreadEnding) {
        // The thread registered and is on its way out without taking any lock again.
        join();
        mThreadEnding = false;
    }
    // Still under mLock: the new monitor thread's lookup waits until this death is handled.
    start();
}

void AspEventMonitor::destroy() {
    stop();
    android::Mutex::Autolock lock(mLock);
    mAspService.clear();
}

bool AspEventMonitor::threadLoop() {
    bool found = true;
    {
        sp<asp::IAudioSignalProcessor> service;
        bool held;
        {
            android::Mutex::Autolock lock(mLock);
            held = mAspService != nullptr;
        }
        if (!held) service = getAspService();
        android::Mutex::Autolock lock(mLock);
        // A service that died since the lookup is not worth registering with: its death notice
        // found nothing to forget, so this thread searches again instead.
        if (service != nullptr && mAspService == nullptr &&
            android::IInterface::asBinder(service)->isBinderAlive()) {
            mAspService = service;
        }
        found = mAspService != nullptr;
        if (found && !mListenerRegistered) {
            mAspService->registerListener(this);
            ALOGD("mAspService.registerListener()");
            mListenerRegistered = true;
        }
        mThreadEnding = found && !exitPending();
    }
    if (exitPending()) {
        stopListener();
        return false;
    }
    if (!found) {
        ALOGE("cannot get service <%s> from defaultServiceManager", kServiceName);
        android::Mutex::Autolock lock(mWakeLock);
        if (!exitPending()) mWake.waitRelative(mWakeLock, kRetryPauseNs);
        return true;
    }
    return false;  // registered: nothing left for this thread to do
}

}  // namespace velmar
