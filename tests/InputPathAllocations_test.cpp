// The microphone path allocates nothing per buffer: every allocation made by the thread that feeds
// buffers is counted while 1000 buffers go through, for mono, three-channel and one-mic input,
// including one-mic buffers at the 240000-frame bound.
#include <gtest/gtest.h>
#include <norvo_fake/FakeNorvo.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "AudioFeed.h"
#include "ServiceFactory.h"

namespace {
thread_local bool tCounting = false;
std::atomic<long> gAllocations{0};
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
// Plain malloc too, where no sanitizer owns it.
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

using android::sp;
using velmar::WakeWordService;
using wws_test::ServiceConfig;

namespace {

long allocationsFor(WakeWordService& service, size_t frames, int buffers) {
    std::vector<int16_t> samples(frames * velmar::gChannelCount, 7);
    wws_test::deliverInput(service, samples, frames);  // warm-up outside the count
    gAllocations = 0;
    tCounting = true;
    for (int i = 0; i < buffers; ++i) wws_test::deliverInput(service, samples, frames);
    tCounting = false;
    return gAllocations.load();
}

class InputPathAllocations : public testing::Test {
  protected:
    void SetUp() override {
        norvo_fake::reset();
        norvo_fake::setAudioPushesIgnored(true);
    }
    void TearDown() override { norvo_fake::reset(); }
};

}  // namespace

TEST_F(InputPathAllocations, MonoAndThreeChannelBuffersAllocateNothing) {
    for (bool threeChannels : {false, true}) {
        SCOPED_TRACE(threeChannels);
        ServiceConfig config;
        config.threeChannelInput = threeChannels;
        sp<WakeWordService> service = wws_test::createService(config);
        ASSERT_EQ(0, service->mInitStatus);
        for (size_t frames : {160u, 480u, 1600u}) {
            EXPECT_EQ(0, allocationsFor(*service, frames, 1000)) << frames << " frames";
        }
        // Every buffer above was accepted and counted.
        EXPECT_EQ(1001u * (160 + 480 + 1600), service->mInputFrameCount);
    }
}

TEST_F(InputPathAllocations, OneMicSplitAllocatesNothingUpToTheBound) {
    ServiceConfig config;
    config.oneMicEnabled = true;
    config.oneMicAudioStream = wws_test::makeStream();
    sp<WakeWordService> service = wws_test::createService(config);
    ASSERT_EQ(0, service->mInitStatus);
    EXPECT_EQ(0, allocationsFor(*service, 160, 1000));
    EXPECT_EQ(0, allocationsFor(*service, WakeWordService::kMaxFramesPerBuffer, 20));
    EXPECT_EQ(1001u * 160 + 21u * WakeWordService::kMaxFramesPerBuffer, service->mInputFrameCount);
}
