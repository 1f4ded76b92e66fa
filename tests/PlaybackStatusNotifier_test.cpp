// PlaybackStatusNotifier: each change of the music and alarm states is reported once (the
// text-to-speech state only on its owner's word), one callback at a time.
#include <gtest/gtest.h>
#include <media/HostAudio.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "PlaybackStatusNotifier.h"
#include "Wait.h"

using android::sp;
using velmar::PlaybackStatusNotifier;
namespace host = android::host;

namespace {

constexpr int kTts = AUDIO_STREAM_TTS;

struct Report {
    bool active;
    int streamType;
};

class Reports {
  public:
    // Records the report, then runs the hook (outside this object's lock) with its stream type.
    static void callback(void* user, bool active, int streamType) {
        auto* self = static_cast<Reports*>(user);
        std::function<void(int)> hook;
        {
            std::lock_guard<std::mutex> guard(self->mLock);
            self->mReports.push_back(Report{active, streamType});
            hook = self->mHook;
        }
        if (hook) hook(streamType);
    }
    std::vector<Report> all() {
        std::lock_guard<std::mutex> guard(mLock);
        return mReports;
    }
    size_t count() { return all().size(); }
    void setHook(std::function<void(int)> hook) {
        std::lock_guard<std::mutex> guard(mLock);
        mHook = std::move(hook);
    }

  private:
    std::mutex mLock;
    std::vector<Report> mReports;     // guarded by mLock
    std::function<void(int)> mHook;  // guarded by mLock
};

class PlaybackStatusNotifierTest : public testing::Test {
  protected:
    void SetUp() override { host::reset(); }
    void TearDown() override {
        notifier->stopMonitor();
        host::reset();
    }
    Reports reports;
    sp<PlaybackStatusNotifier> notifier = new PlaybackStatusNotifier(Reports::callback, &reports, kTts);
};

}  // namespace

TEST_F(PlaybackStatusNotifierTest, StreamChangesAreReportedOnceEach) {
    notifier->startMonitor();
    ASSERT_TRUE(wws_test::waitFor([&] { return reports.count() == 3; }));
    host::setStreamActive(AUDIO_STREAM_MUSIC, true);
    ASSERT_TRUE(wws_test::waitFor([&] { return reports.count() == 4; }));
    host::setStreamActive(AUDIO_STREAM_ALARM, true);
    ASSERT_TRUE(wws_test::waitFor([&] { return reports.count() == 5; }));
    host::setStreamActive(AUDIO_STREAM_MUSIC, false);
    ASSERT_TRUE(wws_test::waitFor([&] { return reports.count() == 6; }));
    std::vector<Report> all = reports.all();
    EXPECT_TRUE(all[3].active && all[3].streamType == AUDIO_STREAM_MUSIC);
    EXPECT_TRUE(all[4].active && all[4].streamType == AUDIO_STREAM_ALARM);
    EXPECT_TRUE(!all[5].active && all[5].streamType == AUDIO_STREAM_MUSIC);
    // Text-to-speech is never polled: only the owner's word changes it.
    host::setStreamActive(static_cast<audio_stream_type_t>(kTts), true);
    EXPECT_FALSE(wws_test::waitFor([&] { return reports.count() > 6; },
                                   std::chrono::milliseconds(350)));
}

// Callbacks run one at a time: a text-to-speech report waits while a polled report's callback
// is still running.
TEST_F(PlaybackStatusNotifierTest, CallbacksNeverOverlap) {
    std::mutex gate;
    std::condition_variable changed;
    bool musicEntered = false;
    bool releaseMusic = false;
    reports.setHook([&](int streamType) {
        if (streamType != AUDIO_STREAM_MUSIC) return;
        std::unique_lock<std::mutex> lock(gate);
        musicEntered = true;
        changed.notify_all();
        changed.wait_for(lock, std::chrono::seconds(10), [&] { return releaseMusic; });
    });
    notifier->startMonitor();
    {
        std::unique_lock<std::mutex> lock(gate);
        ASSERT_TRUE(changed.wait_for(lock, std::chrono::seconds(5), [&] { return musicEntered; }));
    }
    std::thread tts([&] { notifier->notifyTtsState(true); });
    EXPECT_FALSE(wws_test::waitFor([&] { return reports.count() == 3; },
                                   std::chrono::milliseconds(200)));
    {
        std::lock_guard<std::mutex> lock(gate);
        releaseMusic = true;
        changed.notify_all();
    }
    tts.join();
    reports.setHook(nullptr);
    EXPECT_TRUE(wws_test::waitFor([&] { return reports.count() >= 3; }));
}
