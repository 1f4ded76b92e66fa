// Pushing audio to a decoder of the PocketSphinx engine allocates nothing: every allocation made by
// the pushing thread is counted while 1000 pushes go through the C entry point, mono and
// three-channel, with the decoder thread decoding at the same time.
#include <gtest/gtest.h>
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace {
thread_local bool tCounting = false;
std::atomic<long> gAllocations{0};
void noteAllocation() {
    if (tCounting) ++gAllocations;
}
}  // namespace

void* operator new(size_t size) {
    noteAllocation();
    void* p = malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t size) {
    return operator new(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    noteAllocation();
    return malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept {
    free(p);
}
void operator delete[](void* p) noexcept {
    free(p);
}
void operator delete(void* p, size_t) noexcept {
    free(p);
}
void operator delete[](void* p, size_t) noexcept {
    free(p);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
// Plain malloc too (PocketSphinx and C code allocate with it), where no sanitizer owns it.
extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);
extern "C" void* malloc(size_t size) {
    noteAllocation();
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t n, size_t size) {
    noteAllocation();
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t size) {
    noteAllocation();
    return __libc_realloc(p, size);
}
#endif

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
