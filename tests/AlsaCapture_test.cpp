// A microphone through ALSA, captured by the service's own recording and supervision
// (AudioRecordAdapter + AudioRecordInput): no sound card needed, the devices are ALSA's own file
// and null plugins in a configuration the test writes. A device that fails mid-stream or is absent
// is opened again by the supervision's restarts, and capture carries on, in order.
#include <gtest/gtest.h>
#include <media/AlsaPcm.h>
#include <media/AudioRecord.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "AudioRecordAdapter.h"
#include "AudioRecordInput.h"
#include "Wait.h"

using android::sp;
namespace host = android::host;

namespace {

constexpr audio_source_t kSource = AUDIO_SOURCE_HOTWORD;
constexpr int kCheckIntervalNs = 20000000;  // the supervision's pass: 20 ms keeps the test short

// Sample i of the device's file: a pattern whose every position can be told apart.
int16_t pattern(size_t i) {
    return static_cast<int16_t>((i * 37) % 30011);
}

std::string gFolder;

// Writes the configuration as a new file in the old one's place: alsa-lib notices the new file
// (it compares inodes) and reads it again on the next open.
void writeConfig(bool withLateDevice) {
    std::string path = gFolder + "/asound.conf";
    std::ofstream config(path + ".new");
    // "breaks" plays the file and fails once its write-through copy cannot be written (the file
    // plugin copies what it captures, and /dev/full refuses it): an I/O error mid-stream.
    config << "pcm.silence { type null }\n"
           << "pcm.breaks { type file slave.pcm \"silence\" file \"/dev/full\" infile \"" << gFolder
           << "/pattern.raw\" format \"raw\" }\n";
    if (withLateDevice) config << "pcm.late { type file slave.pcm \"silence\" file \"/dev/null\" }\n";
    config.close();
    rename((path + ".new").c_str(), path.c_str());
}

class AlsaCaptureTest : public testing::Test {
  protected:
    static void SetUpTestSuite() {
        char folder[] = "/tmp/alsa-capture-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder));
        gFolder = folder;
        std::vector<int16_t> samples(16000);
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = pattern(i);
        std::ofstream(gFolder + "/pattern.raw", std::ios::binary)
                .write(reinterpret_cast<const char*>(samples.data()),
                       static_cast<std::streamsize>(samples.size() * sizeof(int16_t)));
        writeConfig(false);
        // Only this configuration: no system devices, nothing from the machine running the test.
        setenv("ALSA_CONFIG_PATH", (gFolder + "/asound.conf").c_str(), 1);
    }

    static void TearDownTestSuite() {
        for (const char* file : {"/pattern.raw", "/asound.conf"}) unlink((gFolder + file).c_str());
        rmdir(gFolder.c_str());
    }

    void TearDown() override {
        if (mInput != nullptr) mInput->stop();
        host::reset();
    }

    // Starts the service's capture supervision on the device.
    void capture(const std::string& device) {
        mPcm = new host::AlsaPcm(device, /*stallTimeoutMs=*/1000);
        host::attachSource(kSource, mPcm);
        sp<velmar::AudioRecordAdapter> adapter = new velmar::AudioRecordAdapter(
                mPackage, kSource, 16000, AUDIO_FORMAT_PCM_16_BIT, AUDIO_CHANNEL_IN_MONO, 320,
                &AlsaCaptureTest::onAudio, this);
        mInput = new velmar::AudioRecordInput(adapter, kCheckIntervalNs);
        ASSERT_EQ(android::NO_ERROR, mInput->start());
    }

    static void onAudio(int event, void* user, void* info) {
        if (event != android::AudioRecord::EVENT_MORE_DATA) return;
        auto* self = static_cast<AlsaCaptureTest*>(user);
        auto* buffer = static_cast<android::AudioRecord::Buffer*>(info);
        std::lock_guard<std::mutex> guard(self->mLock);
        self->mSamples.insert(self->mSamples.end(), buffer->i16, buffer->i16 + buffer->frameCount);
    }

    std::vector<int16_t> samples() {
        std::lock_guard<std::mutex> guard(mLock);
        return mSamples;
    }

    // How many times what was captured starts the pattern over: one per opening of the device.
    size_t patternStarts() {
        std::vector<int16_t> got = samples();
        size_t starts = 0;
        for (size_t i = 0; i + 2 < got.size(); ++i) {
            starts += got[i] == pattern(0) && got[i + 1] == pattern(1) && got[i + 2] == pattern(2);
        }
        return starts;
    }

    const android::String16 mPackage{"alsa-test"};
    sp<host::AlsaPcm> mPcm;
    sp<velmar::AudioRecordInput> mInput;
    std::mutex mLock;
    std::vector<int16_t> mSamples;  // guarded by mLock
};

}  // namespace

TEST_F(AlsaCaptureTest, ADeviceFailingMidStreamIsOpenedAgainByTheSupervision) {
    capture("breaks");
    // Each opening delivers the start of the file, fails with an I/O error, ends its recording,
    // and the supervision's next pass starts a new recording that opens the device again.
    ASSERT_TRUE(wws_test::waitFor([&] { return patternStarts() >= 3; }))
            << patternStarts() << " openings delivered audio";
    std::vector<int16_t> got = samples();  // the first opening's audio, in order, to the sample
    for (size_t i = 0; i < 1000; ++i) ASSERT_EQ(pattern(i), got[i]) << "sample " << i;
    EXPECT_GE(host::recordingsCreated(kSource), 3);
    EXPECT_GE(mPcm->opens(), 3);
    std::vector<std::string> seen = mPcm->events();
    EXPECT_NE(seen.end(), std::find(seen.begin(), seen.end(),
                                    "capture from 'breaks' stopped: Input/output error"));
    EXPECT_NE(seen.end(),
              std::find(seen.begin(), seen.end(), "capture from 'breaks' opened again"));
}

TEST_F(AlsaCaptureTest, AnAbsentDeviceIsRetriedUntilItAppears) {
    const std::string absent = "no ALSA device named 'late' (arecord -L lists them)";
    EXPECT_EQ(absent, host::AlsaPcm::probe("late"));
    capture("late");
    ASSERT_TRUE(wws_test::waitFor([&] { return host::recordingsCreated(kSource) >= 3; }));
    EXPECT_EQ(0, mPcm->opens());
    EXPECT_TRUE(samples().empty());
    EXPECT_EQ(std::vector<std::string>{absent}, mPcm->events());  // once, not at every retry

    // alsa-lib reads its configuration again when the file changes: the device is plugged in.
    writeConfig(true);
    ASSERT_TRUE(wws_test::waitFor([&] { return samples().size() >= 1600; }));
    EXPECT_EQ(1, mPcm->opens());
    writeConfig(false);
}
