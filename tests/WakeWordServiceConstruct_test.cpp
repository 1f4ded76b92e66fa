// Constructor: each flag in its own member, null paths, the derived values, and that construction
// starts nothing.
#include <gtest/gtest.h>
#include <norvo_fake/FakeNorvo.h>

#include "LogCapture.h"
#include "ServiceFactory.h"

using android::sp;
using velmar::WakeWordService;
using wws_test::ServiceConfig;

namespace {

// Constructs without running initialize(). The object ends its life the way every service does,
// through its last strong reference (libutils does not support deleting a RefBase directly).
struct Unstarted {
    explicit Unstarted(ServiceConfig& config) : service(wws_test::constructService(config)) {}
    ~Unstarted() { sp<WakeWordService> last(service); }
    WakeWordService* service;
};

}  // namespace

// Each of the eight flags, set alone, must reach its own member and no other.
TEST(WakeWordServiceConstruct, EachFlagLandsInItsOwnMember) {
    norvo_fake::reset();
    for (int flag = 0; flag < 8; ++flag) {
        SCOPED_TRACE(flag);
        ServiceConfig config;
        bool* flags[] = {&config.playbackViaAudioRecord, &config.suppressPlaybackAtInit,
                         &config.aedAvailable,           &config.nearMissEnabled,
                         &config.threeChannelInput,      &config.nttEnabled,
                         &config.preloadNttModel,        &config.oneMicEnabled};
        for (bool* each : flags) *each = false;
        *flags[flag] = true;
        Unstarted made(config);
        WakeWordService* s = made.service;
        bool members[] = {s->mPlaybackViaAudioRecord, s->mSuppressPlaybackAtInit, s->mAedAvailable,
                          s->mNearMissEnabled,        s->mThreeChannelInput,      s->mNttEnabled,
                          s->mPreloadNttModel,        s->mOneMicEnabled};
        for (int member = 0; member < 8; ++member) {
            EXPECT_EQ(member == flag, members[member]) << "member " << member;
        }
    }
}

TEST(WakeWordServiceConstruct, NullOptionalPathsBecomeEmpty) {
    norvo_fake::reset();
    ServiceConfig config;
    config.packageName = nullptr;
    config.aedStaticModelManifestPath = nullptr;
    config.nttModelPath = nullptr;
    config.pmaModelPath = nullptr;
    config.aedCustomModelPath = nullptr;
    config.norvoModelManifestPath = nullptr;
    config.wakeWords.clear();
    Unstarted made(config);
    WakeWordService* s = made.service;
    EXPECT_EQ(0u, s->mPackageName.size());
    EXPECT_EQ("", s->mAedStaticModelManifestPath);
    EXPECT_EQ("", s->mNttModelPath);
    EXPECT_EQ("", s->mPmaModelPath);
    EXPECT_EQ("", s->mAedCustomModelPath);
    EXPECT_EQ(nullptr, s->mNorvoModelManifestPath);
    EXPECT_EQ(nullptr, s->mWakeWords);
    EXPECT_EQ(0, s->mWakeWordCount);
}

TEST(WakeWordServiceConstruct, ChannelCountFollowsThreeChannelThenOneMic) {
    norvo_fake::reset();
    struct Case {
        bool threeChannel;
        bool oneMic;
        uint32_t expected;
    } cases[] = {{false, false, 1}, {false, true, 2}, {true, false, 3}, {true, true, 3}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.threeChannel << c.oneMic);
        velmar::gChannelCount = 99;
        ServiceConfig config;
        config.threeChannelInput = c.threeChannel;
        config.oneMicEnabled = c.oneMic;
        Unstarted made(config);
        EXPECT_EQ(c.expected, velmar::gChannelCount);
    }
}

TEST(WakeWordServiceConstruct, BytesPerSampleComesFromTheStreamFormat) {
    norvo_fake::reset();
    struct Case {
        audio_format_t format;
        uint32_t bytes;
    } cases[] = {
            {AUDIO_FORMAT_PCM_16_BIT, 2}, {AUDIO_FORMAT_PCM_8_BIT, 1},
            {AUDIO_FORMAT_PCM_32_BIT, 4}, {AUDIO_FORMAT_PCM_8_24_BIT, 4},
            {AUDIO_FORMAT_PCM_FLOAT, 4},  {AUDIO_FORMAT_PCM_24_BIT_PACKED, 3},
            {AUDIO_FORMAT_IEC61937, 2},   {AUDIO_FORMAT_MP3, 0},
            {AUDIO_FORMAT_DEFAULT, 0},    {0x7u, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        ServiceConfig config;
        config.audioStream = wws_test::makeStream(c.format);
        Unstarted made(config);
        EXPECT_EQ(c.bytes, made.service->mBytesPerSample);
    }
}

TEST(WakeWordServiceConstruct, StartsNothingAndDumpsTheFrameBoundaries) {
    norvo_fake::reset();
    wws_test::LogCapture log;
    ServiceConfig config;
    Unstarted made(config);

    EXPECT_TRUE(norvo_fake::calls().empty());
    EXPECT_EQ(nullptr, made.service->mAudioStreamWriter);
    EXPECT_EQ(std::vector<std::string>({
                      "FRAME_COUNT_BOUNDARIES: before_boundary=0xdeadbeef",
                      "FRAME_COUNT_BOUNDARIES: mInputFrameCount=0",
                      "FRAME_COUNT_BOUNDARIES: after_boundary=0xdeadbeef",
                      "FRAME_COUNT_BOUNDARIES: before_boundary=0xdeadbeef",
                      "FRAME_COUNT_BOUNDARIES: mPlaybackFrameCount=0",
                      "FRAME_COUNT_BOUNDARIES: after_boundary=0xdeadbeef",
              }),
              log.messages(ANDROID_LOG_INFO, "WakeWordService"));
}
