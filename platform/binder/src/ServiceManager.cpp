// The in-process service manager, the binder thread, and the host controls over both.
#include <binder/HostBinder.h>
#include <binder/IServiceManager.h>
#include <pthread.h>
#include <utils/String8.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace android {

IMPLEMENT_META_INTERFACE(ServiceManager, "android.os.IServiceManager")

namespace {

std::string key(const String16& name) {
    return String8(name).c_str();
}

class HostServiceManager : public BnInterface<IServiceManager> {
  public:
    sp<IBinder> getService(const String16& name) const override {
        std::unique_lock<std::mutex> lock(mLock);
        const auto deadline = std::chrono::steady_clock::now() +
                              std::chrono::milliseconds(mLookupWaitMs);
        for (;;) {
            auto found = mServices.find(key(name));
            if (found != mServices.end()) return found->second;
            if (mChanged.wait_until(lock, deadline) == std::cv_status::timeout) {
                found = mServices.find(key(name));
                return found == mServices.end() ? nullptr : found->second;
            }
        }
    }
    sp<IBinder> checkService(const String16& name) const override {
        std::lock_guard<std::mutex> guard(mLock);
        auto found = mServices.find(key(name));
        return found == mServices.end() ? nullptr : found->second;
    }
    status_t addService(const String16& name, const sp<IBinder>& service,
                        bool /*allowIsolated*/) override {
        if (service == nullptr) return BAD_VALUE;
        {
            std::lock_guard<std::mutex> guard(mLock);
            mServices[key(name)] = service;
        }
        mChanged.notify_all();
        return NO_ERROR;
    }

    sp<IBinder> remove(const std::string& name) {
        std::lock_guard<std::mutex> guard(mLock);
        auto found = mServices.find(name);
        if (found == mServices.end()) return nullptr;
        sp<IBinder> binder = found->second;
        mServices.erase(found);
        return binder;
    }
    void clear() {
        std::map<std::string, sp<IBinder>> gone;
        {
            std::lock_guard<std::mutex> guard(mLock);
            gone.swap(mServices);
        }
    }
    void setLookupWaitMs(int ms) {
        std::lock_guard<std::mutex> guard(mLock);
        mLookupWaitMs = ms;
    }

  private:
    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::map<std::string, sp<IBinder>> mServices;  // guarded by mLock
    int mLookupWaitMs = 1000;                      // guarded by mLock
};

HostServiceManager& manager() {
    // Never destroyed: clients may look services up while the process exits.
    static HostServiceManager* instance = [] {
        auto* created = new HostServiceManager();
        created->incStrong(created);
        return created;
    }();
    return *instance;
}

// The layer's one binder thread: runs posted work in order, for the life of the process.
class BinderThread {
  public:
    static BinderThread& instance() {
        static BinderThread* thread = new BinderThread();  // never destroyed, thread detached
        return *thread;
    }
    void post(std::function<void()> task) {
        {
            std::lock_guard<std::mutex> guard(mLock);
            mTasks.push_back(std::move(task));
        }
        mWake.notify_all();
    }

  private:
    BinderThread() {
        std::thread([this] {
            pthread_setname_np(pthread_self(), "HostBinder");
            for (;;) {
                std::function<void()> task;
                {
                    std::unique_lock<std::mutex> lock(mLock);
                    mWake.wait(lock, [this] { return !mTasks.empty(); });
                    task = std::move(mTasks.front());
                    mTasks.pop_front();
                }
                // Run and destroyed without mLock: a task may hold the last reference to an
                // object whose destructor posts again.
                task();
            }
        }).detach();
    }
    std::mutex mLock;
    std::condition_variable mWake;
    std::deque<std::function<void()>> mTasks;  // guarded by mLock
};

}  // namespace

sp<IServiceManager> defaultServiceManager() {
    return sp<IServiceManager>(&manager());
}

namespace host {

bool killService(const char* name) {
    sp<IBinder> binder = manager().remove(name == nullptr ? "" : name);
    if (binder == nullptr) return false;
    BBinder* local = binder->localBinder();
    if (local != nullptr) local->die();
    return true;
}

void resetServices() {
    manager().clear();
}

void setServiceLookupWaitMs(int milliseconds) {
    manager().setLookupWaitMs(milliseconds);
}

void postToBinderThread(std::function<void()> task) {
    BinderThread::instance().post(std::move(task));
}

void flushBinderThread() {
    std::mutex lock;
    std::condition_variable ran;
    bool done = false;
    postToBinderThread([&] {
        std::lock_guard<std::mutex> guard(lock);
        done = true;
        ran.notify_all();
    });
    std::unique_lock<std::mutex> wait(lock);
    ran.wait(wait, [&] { return done; });
}

}  // namespace host
}  // namespace android
