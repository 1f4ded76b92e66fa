// The audio signal processor monitor and its handler: "ASPState" reports and their timing on a
// clock the tests move, the event filter, stop, and the service dying and coming back.
#include <asp/HostAudioSignalProcessor.h>
#include <binder/HostBinder.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AspEventMonitor.h"
#include "LogCapture.h"
#include "Threads.h"
#include "Wait.h"

using android::sp;
using velmar::AspEventMonitor;
namespace host = android::host;

namespace {

constexpr const char* kTag = "AspEventMonitor";
const std::vector<uint8_t> kActive = {0, 0, 0, 0};

class ManualClock : public velmar::AspClock {
  public:
    uint32_t nowMs() override { return now.load(); }
    void advance(uint32_t ms) { now += ms; }
    std::atomic<uint32_t> now{1000};
};

struct Report {
    std::string name;
    int64_t value;
    std::string thread;
};

class Reports {
  public:
    static void callback(void* user, const char* name, int64_t value) {
        char thread[16] = {};
        pthread_getname_np(pthread_self(), thread, sizeof(thread));
        auto* self = static_cast<Reports*>(user);
        std::lock_guard<std::mutex> guard(self->mLock);
        self->mReports.push_back(Report{name, value, thread});
    }
    std::vector<int64_t> values() {
        std::lock_guard<std::mutex> guard(mLock);
        std::vector<int64_t> values;
        for (const Report& r : mReports) values.push_back(r.value);
        return values;
    }
    std::vector<Report> all() {
        std::lock_guard<std::mutex> guard(mLock);
        return mReports;
    }
    size_t count() { return values().size(); }

  private:
    std::mutex mLock;
    std::vector<Report> mReports;
};

class AspEventMonitorTest : public testing::Test {
  protected:
    void SetUp() override {
        host::resetServices();
        host::setServiceLookupWaitMs(2000);
        service = asp::host::publishService();
    }
    void TearDown() override {
        monitor->destroy();
        host::flushBinderThread();
        host::resetServices();
        host::setServiceLookupWaitMs(1000);
    }
    // Sends an event and waits until the binder thread has delivered it.
    void send(int event, const std::vector<uint8_t>& payload) {
        service->sendEvent(event, payload);
        host::flushBinderThread();
    }
    void startRegistered() {
        monitor->start();
        ASSERT_TRUE(wws_test::waitFor([&] { return service->listenerCount() == 1; }));
    }
    // True when nothing beyond count reports arrives within a few handler polls.
    bool staysAt(size_t count) {
        return !wws_test::waitFor([&] { return reports.count() > count; },
                                  std::chrono::milliseconds(60));
    }

    wws_test::LogCapture log;
    Reports reports;
    std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>();
    sp<asp::host::AudioSignalProcessorService> service;
    sp<AspEventMonitor> monitor =
            new AspEventMonitor(Reports::callback, &reports, clock, 5000000 /* 5 ms polls */);
};

}  // namespace

// The hold is measured on a 32-bit millisecond clock that wraps 4096 ms after the first event,
// between the second event and the end of its hold.
TEST_F(AspEventMonitorTest, ActiveSignalHoldsOneForFourSecondsAfterTheLastOne) {
    clock->now = 0xFFFFF000u;
    startRegistered();
    send(2, kActive);
    EXPECT_EQ((std::vector<int64_t>{0, 1}), reports.values());
    EXPECT_EQ("HostBinder", reports.all()[1].thread);  // reported on the binder thread
    clock->advance(3000);
    send(2, kActive);  // restarts the hold
    EXPECT_EQ((std::vector<int64_t>{0, 1, 1}), reports.values());
    clock->advance(1001);  // 4001 ms after the first, 1001 after the second
    EXPECT_TRUE(staysAt(3));
    clock->advance(3000);  // 4001 ms after the second
    ASSERT_TRUE(wws_test::waitFor([&] { return reports.count() == 4; }));
    EXPECT_EQ(0, reports.all()[3].value);
    EXPECT_EQ("AspEventHandler", reports.all()[3].thread);
    clock->advance(10000);
    EXPECT_TRUE(staysAt(4));
}

TEST_F(AspEventMonitorTest, OnlyEventTwoWithAFourByteZeroCounts) {
    startRegistered();
    send(3, kActive);
    send(2, {1, 0, 0, 0});
    send(2, std::vector<uint8_t>(8, 0));
    send(2, {0, 0});
    service->sendEventWithoutData(2, 4);
    host::flushBinderThread();
    EXPECT_EQ((std::vector<int64_t>{0}), reports.values());
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag, "Error onEvent() arg should not be NULL"));
}

TEST_F(AspEventMonitorTest, StopReportsZeroOnlyWithAOneOutstanding) {
    startRegistered();
    send(2, kActive);
    monitor->stop();
    EXPECT_EQ((std::vector<int64_t>{0, 1, 0}), reports.values());
    EXPECT_EQ(0u, service->listenerCount());
    EXPECT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("AspEventHandler") == 0; }));
    monitor->stop();
    EXPECT_EQ(3u, reports.count());
    // A late event finds the handler stopped.
    monitor->onEvent(2, 4, kActive.data());
    EXPECT_EQ(3u, reports.count());
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "ignore event from ASP, because AspEventHandler is not running"));
}

TEST_F(AspEventMonitorTest, SearchesUntilTheServiceAppearsAndStopsPromptly) {
    host::resetServices();
    host::setServiceLookupWaitMs(20);
    monitor->start();
    // Absent, the service is looked up again after a pause of half a second: a monitor that
    // looked it up in a tight loop would make some twenty lookups of 20 ms in the next 400 ms.
    const std::string absent = "cannot get service <audiosignalprocessor> from defaultServiceManager";
    ASSERT_TRUE(wws_test::waitFor([&] { return log.count(absent) >= 1; }));
    const size_t misses = log.count(absent);
    EXPECT_FALSE(wws_test::waitFor([&] { return log.count(absent) > misses + 2; },
                                   std::chrono::milliseconds(400)));
    service = asp::host::publishService();
    ASSERT_TRUE(wws_test::waitFor([&] { return service->listenerCount() == 1; }));
    const size_t errors = log.count(absent);
    EXPECT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("AspEventMonitor") == 0; }))
            << wws_test::threadsNamed("AspEventMonitor") << " monitor threads";
    EXPECT_EQ(errors, log.count(absent));

    // Stopping while searching cuts the pause between lookups short.
    monitor->stop();
    host::resetServices();
    sp<AspEventMonitor> searching = new AspEventMonitor(Reports::callback, &reports, clock);
    searching->start();
    ASSERT_TRUE(wws_test::waitFor([&] { return log.count(absent) > errors; }));
    auto before = std::chrono::steady_clock::now();
    searching->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(400));
}

// A monitor that registered, stopped and started again: a death that comes before the new
// thread's first pass must not wait for that thread as it would for the first one, which was on
// its way out. The new thread is held before its first pass (readyToRun) to place the death there.
TEST_F(AspEventMonitorTest, ADeathAfterARestartDoesNotWaitForTheNewThread) {
    struct GatedMonitor : AspEventMonitor {
        using AspEventMonitor::AspEventMonitor;
        android::status_t readyToRun() override {
            std::unique_lock<std::mutex> lock(gateLock);
            gateChanged.wait(lock, [this] { return open; });
            return android::NO_ERROR;
        }
        void setOpen(bool value) {
            std::lock_guard<std::mutex> guard(gateLock);
            open = value;
            gateChanged.notify_all();
        }
        std::mutex gateLock;
        std::condition_variable gateChanged;
        bool open = true;
    };
    sp<GatedMonitor> gated = new GatedMonitor(Reports::callback, &reports, clock);
    monitor = gated;
    startRegistered();
    ASSERT_TRUE(wws_test::waitFor([] { return wws_test::threadsNamed("AspEventMonitor") == 0; }));
    monitor->stop();
    host::resetServices();
    gated->setOpen(false);
    monitor->start();

    std::atomic<bool> handled{false};
    std::thread death([&] {
        monitor->binderDied(nullptr);
        handled = true;
    });
    if (!wws_test::waitFor([&] { return handled.load(); })) {
        std::fprintf(stderr, "binderDied waits for a thread that has not begun\n");
        std::_Exit(1);  // once the thread begins it needs the lock the death holds: no teardown
    }
    death.join();
    gated->setOpen(true);
    service = asp::host::publishService();
    EXPECT_TRUE(wws_test::waitFor([&] { return service->listenerCount() == 1; }));
}
