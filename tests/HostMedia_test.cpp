// The host media layer: WAV files through libsndfile as 16-bit PCM tracks, and clear answers for
// files that are missing, not WAV, or cut short.
#include <gtest/gtest.h>
#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MediaExtractorFactory.h>
#include <media/stagefright/foundation/MediaDefs.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "WavFile.h"

using android::sp;

namespace {

sp<android::IMediaExtractor> extractorFor(const std::string& path) {
    return android::MediaExtractorFactory::Create(new android::FileSource(path.c_str()),
                                                  android::MEDIA_MIMETYPE_CONTAINER_WAV);
}

// Reads a started track to its end; returns the status that ended it.
android::status_t readAll(const sp<android::IMediaSource>& track, std::vector<int16_t>* out) {
    for (;;) {
        android::MediaBufferBase* buffer = nullptr;
        android::status_t status = track->read(&buffer);
        if (status != android::NO_ERROR) return status;
        const int16_t* samples = reinterpret_cast<const int16_t*>(
                static_cast<uint8_t*>(buffer->data()) + buffer->range_offset());
        out->insert(out->end(), samples, samples + buffer->range_length() / sizeof(int16_t));
        buffer->release();
    }
}

}  // namespace

TEST(HostMedia, MonoWavReadsBackAsSixteenBitPcm) {
    std::vector<int16_t> samples = wws_test::rampSamples(5000, -2500);
    for (int format : {SF_FORMAT_PCM_16, SF_FORMAT_PCM_24, SF_FORMAT_PCM_32}) {
        SCOPED_TRACE(format);
        std::string path = wws_test::writeWav("mono" + std::to_string(format) + ".wav", samples,
                                              22050, 1, format);
        sp<android::IMediaExtractor> extractor = extractorFor(path);
        ASSERT_NE(nullptr, extractor);
        EXPECT_EQ(1u, extractor->countTracks());
        EXPECT_EQ(nullptr, extractor->getTrack(1));
        sp<android::IMediaSource> track = extractor->getTrack(0);
        ASSERT_NE(nullptr, track);
        int32_t rate = 0;
        int32_t channels = 0;
        ASSERT_TRUE(track->getFormat()->findInt32(android::kKeySampleRate, &rate));
        ASSERT_TRUE(track->getFormat()->findInt32(android::kKeyChannelCount, &channels));
        EXPECT_EQ(22050, rate);
        EXPECT_EQ(1, channels);

        android::MediaBufferBase* none = nullptr;
        EXPECT_EQ(android::INVALID_OPERATION, track->read(&none));  // not started
        ASSERT_EQ(android::NO_ERROR, track->start());
        std::vector<int16_t> read;
        EXPECT_EQ(android::ERROR_END_OF_STREAM, readAll(track, &read));
        EXPECT_EQ(samples, read);
        EXPECT_EQ(android::NO_ERROR, track->stop());
    }
}

TEST(HostMedia, TruncatedFilesEndEarlyOrAreRefused) {
    std::vector<int16_t> samples = wws_test::rampSamples(4000);
    std::string path = wws_test::writeWav("cut.wav", samples, 16000);
    // Cut inside the data: the samples that remain are delivered, then the stream ends.
    ASSERT_EQ(0, truncate(path.c_str(), 44 + 1000 * 2));
    sp<android::IMediaExtractor> extractor = extractorFor(path);
    ASSERT_NE(nullptr, extractor);
    sp<android::IMediaSource> track = extractor->getTrack(0);
    ASSERT_EQ(android::NO_ERROR, track->start());
    std::vector<int16_t> read;
    EXPECT_EQ(android::ERROR_END_OF_STREAM, readAll(track, &read));
    ASSERT_EQ(1000u, read.size());
    EXPECT_TRUE(std::equal(read.begin(), read.end(), samples.begin()));

    // Cut inside the header: not a readable WAV.
    std::string header = wws_test::writeWav("header.wav", samples, 16000);
    ASSERT_EQ(0, truncate(header.c_str(), 20));
    EXPECT_EQ(nullptr, extractorFor(header));
}
