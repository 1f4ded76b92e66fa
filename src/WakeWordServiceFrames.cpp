// Frame counters and their diagnostics.
#define LOG_TAG "WakeWordService"

#include <log/log.h>

#include "WakeWordService.h"

namespace velmar {

void WakeWordService::logFrameCountBoundaries() {
    // The guard words sit on both sides of each counter; a value other than 0xdeadbeef in a dump
    // shows that something wrote over the counter's neighbourhood.
    ALOGI("FRAME_COUNT_BOUNDARIES: before_boundary=0x%08x", mInputBeforeBoundary);
    ALOGI("FRAME_COUNT_BOUNDARIES: mInputFrameCount=%llu",
          static_cast<unsigned long long>(mInputFrameCount));
    ALOGI("FRAME_COUNT_BOUNDARIES: after_boundary=0x%08x", mInputAfterBoundary);
    ALOGI("FRAME_COUNT_BOUNDARIES: before_boundary=0x%08x", mPlaybackBeforeBoundary);
    ALOGI("FRAME_COUNT_BOUNDARIES: mPlaybackFrameCount=%llu",
          static_cast<unsigned long long>(mPlaybackFrameCount));
    ALOGI("FRAME_COUNT_BOUNDARIES: after_boundary=0x%08x", mPlaybackAfterBoundary);
}

}  // namespace velmar
