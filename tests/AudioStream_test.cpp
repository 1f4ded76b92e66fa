// The host audio stream: positions the writer reports, what a reader reads back, readers the
// ring has lapped, and positions wrapping at 32 bits.
#include <audiostream/AudioStream.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include "Wait.h"

using android::sp;
using velmar::AudioStream;
using velmar::AudioStreamFormat;
using velmar::AudioStreamReader;
using velmar::AudioStreamWriter;

namespace {

sp<AudioStream> makeStream(size_t capacity) {
    return new AudioStream(AudioStreamFormat{AUDIO_FORMAT_PCM_16_BIT, 16000, 1}, capacity);
}

std::vector<uint8_t> pattern(size_t size, uint32_t start) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>((start + i) * 7u);
    return bytes;
}

}  // namespace

TEST(AudioStream, WriterPositionsAndReaderReadBack) {
    sp<AudioStream> stream = makeStream(64);
    sp<AudioStreamWriter> writer;
    ASSERT_EQ(0, stream->openWriter(writer));
    sp<AudioStreamReader> reader;
    ASSERT_EQ(0, stream->openReader(reader));

    uint32_t position = 99;
    ASSERT_EQ(0, writer->getPosition(&position));
    EXPECT_EQ(0u, position);
    std::vector<uint8_t> data = pattern(21, 0);
    EXPECT_EQ(21, writer->write(data.data(), data.size()));
    ASSERT_EQ(0, writer->getPosition(&position));
    EXPECT_EQ(21u, position);
    EXPECT_EQ(android::BAD_VALUE, writer->getPosition(nullptr));
    EXPECT_EQ(android::BAD_VALUE, writer->write(nullptr, 4));

    std::vector<uint8_t> out(64);
    EXPECT_EQ(21u, reader->available());
    EXPECT_EQ(10, reader->read(out.data(), 10));
    EXPECT_EQ(11, reader->read(out.data() + 10, 64));
    out.resize(21);
    EXPECT_EQ(data, out);
    EXPECT_EQ(0, reader->read(out.data(), 4));  // nothing more, and no waiting

    // Seek back and read the same bytes again.
    ASSERT_EQ(0, reader->setPosition(5));
    std::vector<uint8_t> again(6);
    EXPECT_EQ(6, reader->read(again.data(), 6));
    EXPECT_TRUE(std::equal(again.begin(), again.end(), data.begin() + 5));
}

// Blobs written one after another into a ring of 64 bytes: a blob the ring still holds reads back
// whole; one whose first byte is overwritten yields nothing rather than a later blob's bytes.
TEST(AudioStream, ReadsOnlyFromPositionsTheRingStillHolds) {
    sp<AudioStream> stream = makeStream(64);
    sp<AudioStreamWriter> writer;
    ASSERT_EQ(0, stream->openWriter(writer));
    sp<AudioStreamReader> reader;
    ASSERT_EQ(0, stream->openReader(reader));

    // Nothing written yet: "32 bytes ago" was never held.
    ASSERT_EQ(0, reader->setPosition(0u - 32u));
    uint8_t out[64];
    EXPECT_EQ(0u, reader->available());
    EXPECT_EQ(android::NOT_ENOUGH_DATA, reader->read(out, sizeof(out)));

    std::vector<uint8_t> all = pattern(200, 0);
    for (size_t offset = 0; offset < all.size(); offset += 25) {
        ASSERT_EQ(25, writer->write(all.data() + offset, 25));
    }
    // The ring holds bytes 136..199 now.
    for (uint32_t blob : {150u, 175u, 136u}) {
        SCOPED_TRACE(blob);
        ASSERT_EQ(0, reader->setPosition(blob));
        ASSERT_EQ(25, reader->read(out, 25));
        EXPECT_TRUE(std::equal(out, out + 25, all.begin() + blob));
    }
    for (uint32_t blob : {125u, 135u, 0u}) {
        SCOPED_TRACE(blob);
        ASSERT_EQ(0, reader->setPosition(blob));
        EXPECT_EQ(0u, reader->available());
        EXPECT_EQ(android::NOT_ENOUGH_DATA, reader->read(out, 25));
        uint32_t position = 0;
        ASSERT_EQ(0, reader->getPosition(&position));
        EXPECT_EQ(blob, position);  // kept: the caller decides where to go on
    }
    // Asking for more than is written yields what there is, from the position on.
    ASSERT_EQ(0, reader->setPosition(190));
    EXPECT_EQ(10, reader->read(out, sizeof(out)));
    EXPECT_TRUE(std::equal(out, out + 10, all.begin() + 190));
}

TEST(AudioStream, PositionsWrapAtThirtyTwoBits) {
    sp<AudioStream> stream = makeStream(64);
    sp<AudioStreamWriter> writer;
    ASSERT_EQ(0, stream->openWriter(writer));
    sp<AudioStreamReader> reader;
    ASSERT_EQ(0, stream->openReader(reader));
    // Drive the writer to just below 2^32 with large writes; only the tail is kept.
    std::vector<uint8_t> big(1u << 20);
    uint64_t total = 0;
    const uint64_t target = (uint64_t{1} << 32) - 16;
    while (total + big.size() <= target) {
        ASSERT_EQ(static_cast<ssize_t>(big.size()), writer->write(big.data(), big.size()));
        total += big.size();
    }
    std::vector<uint8_t> rest(static_cast<size_t>(target - total));
    if (!rest.empty()) writer->write(rest.data(), rest.size());
    ASSERT_EQ(0, reader->setPosition(static_cast<uint32_t>(target)));

    std::vector<uint8_t> data = pattern(40, 3);
    ASSERT_EQ(40, writer->write(data.data(), data.size()));
    uint32_t position = 0;
    ASSERT_EQ(0, writer->getPosition(&position));
    EXPECT_EQ(24u, position);  // wrapped
    std::vector<uint8_t> out(40);
    EXPECT_EQ(40, reader->read(out.data(), out.size()));
    EXPECT_EQ(data, out);
}
