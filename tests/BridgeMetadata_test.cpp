// The bridge's metadata writer: blobs from concurrent engine threads land whole, each at the
// position reported for it, and failures report (0, 0). Native and JVM-free, so that it also runs
// under ThreadSanitizer.
#include <audiostream/AudioStream.h>
#include <gtest/gtest.h>
#include <norvo/NorvoApi.h>
#include <utils/Mutex.h>

#include <set>
#include <thread>
#include <vector>

#include "LogCapture.h"

// The bridge's own globals and writer, as the result callbacks use them.
extern android::sp<velmar::AudioStreamWriter> gMetaDataWriter;
extern android::Mutex gBufferLock;
void writeAsrBlob(const NorvoDataBlob& blob, uint32_t* position, uint32_t* size);

namespace {

constexpr const char* kTag = "WakeWordService_JNI";

struct Written {
    uint32_t position;
    uint32_t size;
    uint8_t tag;
};

class BridgeMetadata : public testing::Test {
  protected:
    void SetUp() override {
        stream = new velmar::AudioStream(
                velmar::AudioStreamFormat{AUDIO_FORMAT_PCM_16_BIT, 16000, 1}, 1u << 20);
        android::Mutex::Autolock lock(gBufferLock);
        ASSERT_EQ(0, stream->openWriter(gMetaDataWriter));
    }
    void TearDown() override {
        android::Mutex::Autolock lock(gBufferLock);
        if (gMetaDataWriter != nullptr) gMetaDataWriter->close();
        gMetaDataWriter.clear();
    }
    std::vector<uint8_t> readBack(uint32_t position, uint32_t size) {
        android::sp<velmar::AudioStreamReader> reader;
        stream->openReader(reader);
        reader->setPosition(position);
        std::vector<uint8_t> bytes(size);
        ssize_t n = reader->read(bytes.data(), bytes.size());
        bytes.resize(n > 0 ? static_cast<size_t>(n) : 0);
        return bytes;
    }
    android::sp<velmar::AudioStream> stream;
    wws_test::LogCapture log;
};

}  // namespace

TEST_F(BridgeMetadata, ConcurrentBlobsLandWholeAtTheirOwnPositions) {
    constexpr int kThreads = 4;
    constexpr int kPerThread = 200;
    std::vector<std::vector<Written>> written(kThreads);
    std::vector<std::thread> engineThreads;
    for (int t = 0; t < kThreads; ++t) {
        engineThreads.emplace_back([t, &written] {
            for (int k = 0; k < kPerThread; ++k) {
                const uint8_t tag = static_cast<uint8_t>(t * kPerThread + k);
                std::vector<uint8_t> data(64 + (k * 37) % 449, tag);
                NorvoDataBlob blob{static_cast<uint32_t>(data.size()), data.data()};
                Written w{0, 0, tag};
                writeAsrBlob(blob, &w.position, &w.size);
                written[t].push_back(w);
            }
        });
    }
    for (std::thread& thread : engineThreads) thread.join();

    std::set<uint32_t> positions;
    uint64_t total = 0;
    for (const auto& perThread : written) {
        for (const Written& w : perThread) {
            ASSERT_NE(0u, w.size);
            EXPECT_TRUE(positions.insert(w.position).second) << "position used twice";
            EXPECT_EQ(std::vector<uint8_t>(w.size, w.tag), readBack(w.position, w.size));
            total += w.size;
        }
    }
    uint32_t end = 0;
    ASSERT_EQ(0, gMetaDataWriter->getPosition(&end));
    EXPECT_EQ(total, end);  // nothing written twice, nothing lost
}

TEST_F(BridgeMetadata, FailuresReportNoBlob) {
    const uint8_t data[3] = {1, 2, 3};
    NorvoDataBlob blob{3, data};
    uint32_t position = 77;
    uint32_t size = 77;
    writeAsrBlob(blob, nullptr, &size);
    EXPECT_EQ(77u, size);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "cannot write metadata with null reference of metadataWriter or "
                             "blobSize"));

    // A writer whose position cannot be read: (0, 0), nothing written.
    ASSERT_EQ(0, gMetaDataWriter->close());
    writeAsrBlob(blob, &position, &size);
    EXPECT_EQ(0u, position);
    EXPECT_EQ(0u, size);
    EXPECT_TRUE(log.contains(ANDROID_LOG_ERROR, kTag,
                             "Error: get position from metadataStream writer (-38)."));

    // No writer at all: the outputs stay as they were.
    {
        android::Mutex::Autolock lock(gBufferLock);
        gMetaDataWriter.clear();
    }
    position = size = 5;
    writeAsrBlob(blob, &position, &size);
    EXPECT_EQ(5u, position);
    EXPECT_EQ(5u, size);
}
