#define LOG_TAG "PlaybackMonitor"

#include "PlaybackMonitor.h"

#include <binder/IServiceManager.h>
#include <log/log.h>

namespace velmar {

using android::sp;
using android::status_t;

namespace {
constexpr const char* kServiceName = "playbackstream";
constexpr int32_t kThreadPriority = 10;        // ANDROID_PRIORITY_BACKGROUND
constexpr int64_t kRetryPauseNs = 1000000000;  // a second between lookups
}  // namespace

PlaybackMonitor::PlaybackMonitor(Callback callback, void* user)
    : android::Thread(true /*canCallJava*/),
      mCallback(callback),
      mUserData(user),
      mWake(android::Condition::PRIVATE) {}

PlaybackMonitor::~PlaybackMonitor() {
    stopMonitor();
}

void PlaybackMonitor::startMonitor() {
    android::Mutex::Autolock lock(mLock);
    startMonitor_l();
}

void PlaybackMonitor::startMonitor_l() {
    ALOGD("startMonitor()");
    mRunState = RunState::kStarted;
    if (isRunning()) {
        ALOGE("PlaybackMonitor has already started");
    } else if (mConnected) {
        ALOGE("PlaybackMonitor has already got");
    } else if (run("PlaybackMonitor", kThreadPriority, 0) == android::NO_ERROR) {
        ALOGD("PlaybackMonitor has been started");
    } else {
        ALOGE("Error starting thread");
    }
}

void PlaybackMonitor::stopMonitor() {
    {
        android::Mutex::Autolock lock(mLock);
        ALOGD("stopMonitor()");
        // Under mLock: a death handled from now on sees it and starts no search.
        mRunState = RunState::kStopped;
        requestExit();
        android::Mutex::Autolock wake(mWakeLock);
        mWake.signal();
    }
    // Without mLock: the monitor thread may be waiting for mServiceLock, held by a death that is
    // itself waiting for mLock.
    status_t status = requestExitAndWait();
    if (status != android::NO_ERROR) ALOGE("Error stopping thread: %d", status);
    android::Mutex::Autolock lock(mServiceLock);
    if (mServiceBinder != nullptr) mServiceBinder->unlinkToDeath(this);
    resetVariables();
}

sp<IAudioStreamService> PlaybackMonitor::getService() {
    android::Mutex::Autolock lock(mServiceLock);
    if (mAudioStreamService != nullptr) return nullptr;
    sp<android::IBinder> binder =
            android::defaultServiceManager()->getService(android::String16(kServiceName));
    if (binder == nullptr) return nullptr;
    ALOGD("playbackStreamService binder connected");
    binder->linkToDeath(this, nullptr, 0);
    return IAudioStreamService::asInterface(binder);
}

void PlaybackMonitor::onServiceConnected() {
    mReaderThread = new AudioStreamReaderThread(mAudioStreamService, mCallback, mUserData);
    mReaderThread->start();  // the reader logs its own failures
}

void PlaybackMonitor::onServiceDisconnected() {
    ALOGD("onServiceDisconnected");
    resetVariables();
    if (mThreadEnding.exchange(false)) {
        // The thread connected and is on its way out without taking any lock again; until it
        // has ended, run() would refuse the next search.
        join();
    }
    android::Mutex::Autolock lock(mLock);
    // A stop since the death leaves the monitor stopped; otherwise it starts over, as its owner
    // would start it.
    if (mRunState != RunState::kStopped) startMonitor_l();
}

void PlaybackMonitor::resetVariables() {
    mAudioStreamService.clear();
    mServiceBinder.clear();
    mConnected = false;
    if (mReaderThread != nullptr) {
        mReaderThread->stop();
        // The reader does not wait for its thread; after a reset no block may reach the callback.
        mReaderThread->join();
        mReaderThread.clear();
    }
}

void PlaybackMonitor::binderDied(const android::wp<android::IBinder>& /*who*/) {
    android::Mutex::Autolock lock(mServiceLock);
    ALOGD("playbackStreamService binder died");
    onServiceDisconnected();
}

bool PlaybackMonitor::threadLoop() {
    status_t result = android::NO_ERROR;
    {
        bool held;
        {
            android::Mutex::Autolock lock(mServiceLock);
            held = mAudioStreamService != nullptr;
        }
        sp<IAudioStreamService> found = held ? nullptr : getService();
        android::Mutex::Autolock lock(mServiceLock);
        if (found != nullptr && mAudioStreamService == nullptr) {
            sp<android::IBinder> binder = android::IInterface::asBinder(found);
            // A service that died between the lookup and now is not worth connecting to: its
            // death notice found nothing to reset, so this thread searches again instead.
            if (binder->isBinderAlive()) {
                mAudioStreamService = found;
                mServiceBinder = binder;
                mConnected = true;
                // Only the pass that connects starts a reader: a thread run while connected
                // leaves the running reader alone.
                onServiceConnected();
            }
        }
        if (mAudioStreamService != nullptr) {
            mThreadEnding = true;  // connected: this pass ends the thread
        } else {
            result = android::BAD_VALUE;
        }
    }
    if (exitPending()) return false;
    if (result == android::BAD_VALUE) {
        ALOGE("cannot get service <%s> from defaultServiceManager", kServiceName);
        android::Mutex::Autolock wake(mWakeLock);
        if (!exitPending()) mWake.waitRelative(mWakeLock, kRetryPauseNs);
        return true;
    }
    return false;  // connected, the reader runs: nothing left for this thread to do
}

}  // namespace velmar
