// Pushing audio to a decoder of the PocketSphinx engine allocates nothing: every allocation made by
// the pushing thread is counted while 1000 pushes go through the C entry point, mono and
// three-channel, with the decoder thread decoding at the same time.
#include <gtest/gtest.h>
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>

#include <cstdio>
#include <vector>

#include "RealTimeCounters.h"

using wws_test::gAllocations;
using wws_test::tCounting;

namespace {

const char* const kModelSet = "WakeWordService_modelset";
const char* const kInput = "WakeWordService_input_decoder";

long allocationsDuringPushes(uint32_t channels) {
    NorvoMultichannelAudioFormat format = NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
    format.words[NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT] = channels;
    EXPECT_EQ(NORVO_SUCCESS,
              NorvoDecoder_NewSpotterAudioDecoder(kInput, kModelSet, "norvo", format, "{}"));
    std::vector<int16_t> samples(320 * channels);
    for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<int16_t>(i * 37 % 3000);
    char metadata[1024];
    gAllocations = 0;
    tCounting = true;
    for (int push = 0; push < 1000; ++push) {
        snprintf(metadata, sizeof(metadata),
                 "{ \"sample_count\":%zu, \"first_sample_index\":%llu }", samples.size(),
                 static_cast<unsigned long long>(push) * 320);
        NorvoAudioEvent event{"samples", metadata, samples.data(), 0};
        if (NorvoDecoder_PushAudioEvent(kInput, &event) != NORVO_SUCCESS) {
            tCounting = false;
            ADD_FAILURE() << "push " << push << " failed";
            break;
        }
        // Keep the queue from filling: 1000 pushes are 20 s of audio.
        if (push % 250 == 249) {
            tCounting = false;
            norvo_ps::waitUntilDecoded(kInput, 30000);
            tCounting = true;
        }
    }
    tCounting = false;
    EXPECT_EQ(NORVO_SUCCESS, NorvoDecoder_Delete(kInput));
    return gAllocations.load();
}

TEST(PsEngineAudioPath, PushingAudioAllocatesNothing) {
    ASSERT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
    EXPECT_EQ(0, allocationsDuringPushes(1));
    EXPECT_EQ(0, allocationsDuringPushes(3));
    EXPECT_EQ(NORVO_SUCCESS, NorvoModelSet_Delete(kModelSet));
}

}  // namespace
