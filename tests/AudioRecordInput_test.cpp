// AudioRecordInput: the supervision thread is started once, opens every recording and waits its
// interval between passes. Recreating a recording that ended is AlsaCapture_test's (a failing and
// an absent device).
#include <gtest/gtest.h>
#include <media/AudioRecord.h>
#include <media/HostAudio.h>

#include <host/HostThreads.h>

#include <atomic>
#include <chrono>

#include "AudioRecordAdapter.h"
#include "AudioRecordInput.h"
#include "LogCapture.h"
#include "Threads.h"
#include "Wait.h"

using android::sp;
using velmar::AudioRecordAdapter;
using velmar::AudioRecordInput;
namespace host = android::host;

namespace {

constexpr audio_source_t kSource = AUDIO_SOURCE_HOTWORD;
constexpr audio_source_t kPlaybackSource = 2999;

void ignoreAudio(int, void*, void*) {}

using wws_test::threadsNamed;

class AudioRecordInputTest : public testing::Test {
  protected:
    void SetUp() override {
        host::reset();
        host::attachSource(kSource, new host::GeneratedPcm([](uint64_t, uint32_t) { return 0; }));
    }
    void TearDown() override {
        if (input != nullptr) input->stop();
        host::reset();
    }
    sp<AudioRecordAdapter> adapter(audio_source_t source) {
        return new AudioRecordAdapter(mPackage, source, 16000, AUDIO_FORMAT_PCM_16_BIT,
                                      AUDIO_CHANNEL_IN_MONO, 320, ignoreAudio, nullptr);
    }

    const android::String16 mPackage{"pkg"};
    sp<AudioRecordInput> input;
};

}  // namespace

// Counts the supervision passes: each pass asks every adapter once.
class CountingAdapter : public velmar::IAudioRecordAdapter {
  public:
    std::atomic<int> passes{0};
    android::status_t stop() override { return android::NO_ERROR; }
    android::status_t ensureStarted() override {
        ++passes;
        return android::NO_ERROR;
    }
    audio_source_t getInputSource() const override { return kSource; }
    android::status_t getTimestamp(android::ExtendedTimestamp*) override {
        return android::BAD_VALUE;
    }
};

// Started again after a stop, the thread still waits its interval between passes.
TEST_F(AudioRecordInputTest, OneNamedThreadOpensEveryRecordingAndWaitsBetweenPasses) {
    sp<CountingAdapter> counting = new CountingAdapter();
    input = new AudioRecordInput(adapter(kSource), 50000000);  // 50 ms
    input->addAudioRecord(adapter(kPlaybackSource));
    input->addAudioRecord(counting);
    EXPECT_EQ(0, host::recordingsCreated(kSource));  // constructing starts nothing

    ASSERT_EQ(0, input->start());
    ASSERT_EQ(0, input->start());  // already running: no second thread
    ASSERT_TRUE(wws_test::waitFor([] {
        return host::activeRecordings(kSource) == 1 && host::activeRecordings(kPlaybackSource) == 1;
    }));
    // The kernel keeps 15 characters of "AudioRecordInput". Threads the supervisor creates (the
    // recordings' callback threads) carry its name until they rename themselves.
    EXPECT_TRUE(wws_test::waitFor([] { return threadsNamed("AudioRecordInpu") == 1; }));

    EXPECT_EQ(0, input->stop());
    EXPECT_EQ(0, host::activeRecordings(kSource));
    EXPECT_EQ(0, host::activeRecordings(kPlaybackSource));
    // The OS thread finishes exiting just after the join returns.
    EXPECT_TRUE(wws_test::waitFor([] { return threadsNamed("AudioRecordInpu") == 0; }));
    EXPECT_EQ(0, input->stop());  // not running: nothing to do

    ASSERT_EQ(0, input->start());
    const int before = counting->passes;
    ASSERT_TRUE(wws_test::waitFor([&] { return counting->passes > before; }));
    // About six passes fit in 300 ms; a thread that skipped its wait would make thousands.
    EXPECT_FALSE(wws_test::waitFor([&] { return counting->passes > before + 30; },
                                   std::chrono::milliseconds(300)));
}
