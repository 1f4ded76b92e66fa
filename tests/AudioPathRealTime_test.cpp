// The audio paths are real-time safe: while buffers go through them, the feeding thread allocates
// nothing and takes no lock. Every operator new (and, in the plain build, malloc and
// pthread_mutex_lock) made by that thread is counted over 1000 buffers each of mono,
// three-channel and one-mic microphone input, including one-mic buffers at the 240000-frame
// bound, and of playback audio on its way to the playback and PMA decoders.
#include <gtest/gtest.h>
#include <norvo_fake/FakeNorvo.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>

#include "AudioFeed.h"
#include "ServiceFactory.h"

namespace {
thread_local bool tCounting = false;
std::atomic<long> gAllocations{0};
std::atomic<long> gLocks{0};
void noteAllocation() {
    if (tCounting) ++gAllocations;
}
}  // namespace

// Every form of operator new, counted on the measuring thread.
void* operator new(size_t size) {
    noteAllocation();
    void* p = malloc(size == 0 ? 1 : size);
    if (p == nullptr) throw std::bad_alloc();
    return p;
}
void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    noteAllocation();
    return malloc(size == 0 ? 1 : size);
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
    return operator new(size, tag);
}
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
#define WWS_COUNT_LOCKS 1
// Plain malloc and mutex locks too, where no sanitizer owns them. Every library calls the
// executable's definitions; they count and forward to glibc's own.
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
// glibc's own entry point, by the symbol version each architecture first had it under.
#if defined(__x86_64__)
#define WWS_GLIBC_BASE_VERSION "GLIBC_2.2.5"
#elif defined(__arm__)
#define WWS_GLIBC_BASE_VERSION "GLIBC_2.4"
#elif defined(__aarch64__)
#define WWS_GLIBC_BASE_VERSION "GLIBC_2.17"
#else
#error "the glibc version of __pthread_mutex_lock on this architecture is not known here"
#endif
extern "C" int wws_glibc_mutex_lock(pthread_mutex_t* mutex);
__asm__(".symver wws_glibc_mutex_lock, __pthread_mutex_lock@" WWS_GLIBC_BASE_VERSION);
extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    if (tCounting) ++gLocks;
    return wws_glibc_mutex_lock(mutex);
}
#endif

using android::sp;
using velmar::WakeWordService;
using wws_test::ServiceConfig;

namespace {

struct Counts {
    long allocations;
    long locks;
};

Counts countsFor(WakeWordService& service, size_t frames, int buffers, bool playback) {
    std::vector<int16_t> samples(frames * (playback ? 1 : velmar::gChannelCount), 7);
    auto deliver = [&] {
        if (playback) {
            wws_test::deliverPlayback(service, samples);
        } else {
            wws_test::deliverInput(service, samples, frames);
        }
    };
    deliver();  // warm-up outside the count
    gAllocations = 0;
    gLocks = 0;
    tCounting = true;
    for (int i = 0; i < buffers; ++i) deliver();
    tCounting = false;
    return Counts{gAllocations.load(), gLocks.load()};
}

void expectRealTime(WakeWordService& service, size_t frames, int buffers, bool playback = false) {
    SCOPED_TRACE(testing::Message() << frames << " frames" << (playback ? " of playback" : ""));
    Counts counts = countsFor(service, frames, buffers, playback);
    EXPECT_EQ(0, counts.allocations);
    EXPECT_EQ(0, counts.locks);
}

class AudioPathRealTime : public testing::Test {
  protected:
    void SetUp() override {
        norvo_fake::reset();
        norvo_fake::setAudioPushesIgnored(true);
    }
    void TearDown() override { norvo_fake::reset(); }
};

}  // namespace

TEST_F(AudioPathRealTime, MonoAndThreeChannelMicrophoneBuffers) {
    for (bool threeChannels : {false, true}) {
        SCOPED_TRACE(threeChannels);
        ServiceConfig config;
        config.threeChannelInput = threeChannels;
        sp<WakeWordService> service = wws_test::createService(config);
        ASSERT_EQ(0, service->mInitStatus);
        for (size_t frames : {160u, 480u, 1600u}) expectRealTime(*service, frames, 1000);
        // Every buffer above was accepted and counted.
        EXPECT_EQ(1001u * (160 + 480 + 1600), service->mInputFrameCount);
    }
}

TEST_F(AudioPathRealTime, OneMicSplitUpToTheBound) {
    ServiceConfig config;
    config.oneMicEnabled = true;
    config.oneMicAudioStream = wws_test::makeStream();
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->mInitStatus);
    expectRealTime(*service, 160, 1000);
    expectRealTime(*service, WakeWordService::kMaxFramesPerBuffer, 20);
    EXPECT_EQ(1001u * 160 + 21u * WakeWordService::kMaxFramesPerBuffer, service->mInputFrameCount);
}

TEST_F(AudioPathRealTime, PlaybackBuffersToThePlaybackAndPmaDecoders) {
    ServiceConfig config;
    config.playbackViaAudioRecord = true;
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->mInitStatus);
    ASSERT_TRUE(service->mPlaybackModelReady);
    service->mPmaDecoderReady = true;  // as a loaded PMA model would make it
    for (size_t frames : {160u, 256u, 1600u}) expectRealTime(*service, frames, 1000, true);
    EXPECT_EQ(1001u * (160 + 256 + 1600), service->mPlaybackFrameCount);
}

#ifdef WWS_COUNT_LOCKS
// The counter itself: a path that locks is seen.
TEST_F(AudioPathRealTime, LockCounterSeesAMutex) {
    std::mutex mutex;
    gLocks = 0;
    tCounting = true;
    mutex.lock();
    mutex.unlock();
    tCounting = false;
    EXPECT_EQ(1, gLocks.load());
}
#endif
