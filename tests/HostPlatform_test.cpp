// Host platform layers: system properties over libbase, and thread priorities applied to
// android::Thread on the host (thread names are checked where the service's threads are tested).
#include <android-base/properties.h>
#include <cutils/properties.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/Thread.h>

#include <atomic>
#include <string>

#include "Wait.h"

TEST(HostProperties, GetReturnsLengthValueOrDefault) {
    char value[PROPERTY_VALUE_MAX];
    android::base::SetProperty("test.host.present", "userdebug");
    EXPECT_EQ(9, property_get("test.host.present", value, ""));
    EXPECT_STREQ("userdebug", value);

    EXPECT_EQ(0, property_get("test.host.missing", value, ""));
    EXPECT_STREQ("", value);
    EXPECT_EQ(4, property_get("test.host.missing", value, "dflt"));
    EXPECT_STREQ("dflt", value);
}

TEST(HostProperties, LongValuesAreCutToTheValueLimit) {
    char value[PROPERTY_VALUE_MAX];
    android::base::SetProperty("test.host.long", std::string(200, 'a'));
    EXPECT_EQ(PROPERTY_VALUE_MAX - 1, property_get("test.host.long", value, ""));
    EXPECT_EQ(std::string(PROPERTY_VALUE_MAX - 1, 'a'), value);
}

namespace {

class ParkedThread : public android::Thread {
  public:
    std::atomic<int> tid{0};
    std::atomic<int> nice{0};

  private:
    bool threadLoop() override {
        if (tid == 0) {
            errno = 0;
            nice = getpriority(PRIO_PROCESS, 0);
            tid = static_cast<int>(syscall(SYS_gettid));
        }
        usleep(1000);
        return !exitPending();
    }
};


}  // namespace

TEST(HostThreads, PriorityIsAppliedWhenPermitted) {
    android::sp<ParkedThread> thread = new ParkedThread();
    ASSERT_EQ(android::NO_ERROR, thread->run("AudioRecordInput", 10));
    ASSERT_TRUE(wws_test::waitFor([&] { return thread->tid != 0; }));
    EXPECT_EQ(10, thread->nice.load());  // raising nice needs no privilege
    thread->requestExitAndWait();

    if (geteuid() != 0) GTEST_SKIP() << "negative nice values need root";
    android::sp<ParkedThread> urgent = new ParkedThread();
    ASSERT_EQ(android::NO_ERROR, urgent->run("AspEventMonitor", -16));
    ASSERT_TRUE(wws_test::waitFor([&] { return urgent->tid != 0; }));
    EXPECT_EQ(-16, urgent->nice.load());
    urgent->requestExitAndWait();
}
