// The bridge's metadata writer: a blob from a second engine thread waits for the one being written
// and lands whole after it, and failures report (0, 0). Native and JVM-free, so that it also runs
// under ThreadSanitizer.
#include <audiostream/AudioStream.h>
#include <gtest/gtest.h>
#include <norvo/NorvoApi.h>
#include <utils/Mutex.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "Wait.h"

// The bridge's own globals and writer, as the result callbacks use them.
extern android::sp<velmar::AudioStreamWriter> gMetaDataWriter;
extern android::Mutex gBufferLock;
void writeAsrBlob(const NorvoDataBlob& blob, uint32_t* position, uint32_t* size);

namespace {

constexpr const char* kTag = "WakeWordService_JNI";

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
};

// Held inside the writer between taking the position and writing the blob (its DEBUG line is the
// point between the two), the first engine thread lets a second one try to write: the second must
// wait for the first to finish, or both would report the same position.
std::atomic<int> gInside{0};
std::atomic<bool> gHold{true};
std::atomic<bool> gOverlapped{false};

void holdingLogger(const struct __android_logger_data*, const char* message) {
    if (strncmp(message, "blob received from norvo", 24) != 0) return;
    if (gInside.fetch_add(1) == 0) {
        gOverlapped = wws_test::waitFor([] { return gInside.load() > 1; },
                                        std::chrono::milliseconds(500));
    }
}

TEST_F(BridgeMetadata, ASecondBlobWaitsForTheOneBeingWrittenAndLandsAfterIt) {
    __android_log_set_logger(holdingLogger);
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
    std::vector<uint8_t> first(100, 0xA1), second(60, 0xB2);
    uint32_t positions[2] = {0, 0}, sizes[2] = {0, 0};
    std::thread firstThread([&] {
        NorvoDataBlob blob{100, first.data()};
        writeAsrBlob(blob, &positions[0], &sizes[0]);
    });
    ASSERT_TRUE(wws_test::waitFor([] { return gInside.load() == 1; }));
    std::thread secondThread([&] {
        NorvoDataBlob blob{60, second.data()};
        writeAsrBlob(blob, &positions[1], &sizes[1]);
    });
    firstThread.join();
    secondThread.join();
    __android_log_set_logger(__android_log_stderr_logger);
    __android_log_set_minimum_priority(ANDROID_LOG_INFO);
    EXPECT_FALSE(gOverlapped.load()) << "the second blob was placed while the first was written";
    EXPECT_EQ(0u, positions[0]);
    EXPECT_EQ(100u, positions[1]);
    EXPECT_EQ(first, readBack(positions[0], sizes[0]));
    EXPECT_EQ(second, readBack(positions[1], sizes[1]));
}

TEST_F(BridgeMetadata, FailuresReportNoBlob) {
    wws_test::LogCapture log;
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

}  // namespace
