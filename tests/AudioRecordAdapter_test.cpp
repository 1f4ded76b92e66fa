// AudioRecordAdapter: when a recording is (re)created, with which parameters, and the messages and
// statuses of each failure.
#include <gtest/gtest.h>
#include <media/AudioRecord.h>
#include <media/HostAudio.h>

#include "AudioRecordAdapter.h"
#include "LogCapture.h"
#include "Wait.h"

using android::sp;
using velmar::AudioRecordAdapter;
namespace host = android::host;

namespace {

constexpr audio_source_t kSource = AUDIO_SOURCE_HOTWORD;
constexpr const char* kTag = "AudioRecordAdapter";

std::atomic<int> gBuffers{0};
void countBuffers(int event, void*, void*) {
    if (event == android::AudioRecord::EVENT_MORE_DATA) ++gBuffers;
}

class AudioRecordAdapterTest : public testing::Test {
  protected:
    void SetUp() override {
        host::reset();
        host::attachSource(kSource, new host::GeneratedPcm([](uint64_t f, uint32_t) {
                               return static_cast<int16_t>(f);
                           }));
    }
    void TearDown() override { host::reset(); }

    sp<AudioRecordAdapter> makeAdapter(audio_source_t source = kSource) {
        return new AudioRecordAdapter(mPackage, source, 16000, AUDIO_FORMAT_PCM_16_BIT, 0x80000007u,
                                      480, countBuffers, this);
    }

    const android::String16 mPackage{"velmar.speech.wakewordservice"};
    wws_test::LogCapture log;
};

}  // namespace

TEST_F(AudioRecordAdapterTest, FirstPassCreatesARecordingWithTheAdaptersParameters) {
    sp<AudioRecordAdapter> adapter = makeAdapter();
    android::ExtendedTimestamp ts;
    EXPECT_EQ(android::BAD_VALUE, adapter->getTimestamp(&ts));  // no recording yet
    EXPECT_EQ(0, adapter->stop());                              // nothing to stop
    EXPECT_EQ(0, host::recordingsCreated(kSource));

    ASSERT_EQ(0, adapter->ensureStarted());
    sp<android::AudioRecord> record = host::lastRecording(kSource);
    ASSERT_NE(nullptr, record);
    EXPECT_EQ(0x80000007u, record->channelMask());
    EXPECT_EQ(480u, record->frameCount());
    EXPECT_EQ(mPackage, record->opPackageName());
    ASSERT_TRUE(wws_test::waitFor([] { return gBuffers.load() > 0; }));  // started
    EXPECT_EQ(0, adapter->getTimestamp(&ts));
    record.clear();

    // Source active and our recording running: the pass changes nothing.
    EXPECT_EQ(0, adapter->ensureStarted());
    EXPECT_EQ(1, host::recordingsCreated(kSource));
    EXPECT_EQ(1, host::activeRecordings(kSource));

    EXPECT_EQ(0, adapter->stop());
    EXPECT_EQ(0, host::activeRecordings(kSource));
    EXPECT_EQ(android::BAD_VALUE, adapter->getTimestamp(&ts));
    EXPECT_FALSE(log.loggedOnThisThread());
}

TEST_F(AudioRecordAdapterTest, RecordingStoppedByThePlatformIsReplaced) {
    sp<AudioRecordAdapter> adapter = makeAdapter();
    ASSERT_EQ(0, adapter->ensureStarted());
    sp<android::AudioRecord> ours = host::lastRecording(kSource);
    // Another client keeps the source active while the platform stops our recording.
    sp<android::AudioRecord> other =
            new android::AudioRecord(kSource, 16000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_IN_MONO,
                                     android::String16("other"), 320, countBuffers, nullptr);
    ASSERT_EQ(0, other->start());
    ours->platformStop();
    ASSERT_TRUE(ours->stopped());
    bool active = false;
    ASSERT_EQ(0, android::AudioSystem::isSourceActive(kSource, &active));
    ASSERT_TRUE(active);

    ASSERT_EQ(0, adapter->ensureStarted());
    EXPECT_EQ(3, host::recordingsCreated(kSource));
    sp<android::AudioRecord> replacement = host::lastRecording(kSource);
    EXPECT_NE(ours, replacement);
    EXPECT_NE(other, replacement);
    EXPECT_FALSE(replacement->stopped());
    EXPECT_EQ(2, host::activeRecordings(kSource));
    other->stop();
    adapter->stop();
}

TEST_F(AudioRecordAdapterTest, FailuresAreLoggedAndLeaveNoRecording) {
    sp<AudioRecordAdapter> adapter = makeAdapter();

    host::setIsSourceActiveStatus(android::DEAD_OBJECT);
    EXPECT_EQ(android::DEAD_OBJECT, adapter->ensureStarted());
    EXPECT_EQ(0, host::recordingsCreated(kSource));
    host::setIsSourceActiveStatus(android::NO_ERROR);

    host::failNextInitCheck(kSource, android::NO_MEMORY);
    EXPECT_EQ(android::NO_MEMORY, adapter->ensureStarted());
    android::ExtendedTimestamp ts;
    EXPECT_EQ(android::BAD_VALUE, adapter->getTimestamp(&ts));

    host::failNextStart(kSource, android::PERMISSION_DENIED);
    EXPECT_EQ(android::PERMISSION_DENIED, adapter->ensureStarted());
    EXPECT_EQ(0, host::activeRecordings(kSource));

    EXPECT_EQ(0, adapter->ensureStarted());  // the next pass succeeds
    EXPECT_EQ(1, host::activeRecordings(kSource));

    EXPECT_EQ((std::vector<std::string>{
                      "Error getting AudioSource state: -32",
                      "Error initializing AudioRecord: -12",
                      "Error restarting audio record: -12",
                      "Error starting AudioRecord: -1",
                      "Error restarting audio record: -1",
              }),
              log.messages(ANDROID_LOG_ERROR, kTag));
    adapter->stop();
}
