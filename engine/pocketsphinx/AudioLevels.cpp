#include "AudioLevels.h"

#include <algorithm>
#include <cmath>

namespace norvo_ps {

namespace {

// The speech level follows louder frames quickly and falls slowly through pauses (2 dB a
// second); the background level follows quieter frames quickly and rises slowly through speech
// (1 dB a second). So each stays near its own kind of frame across words and sentences.
constexpr double kAttack = 0.3;
constexpr double kSpeechFallDbPerFrame = 0.02;
constexpr double kBackgroundRiseDbPerFrame = 0.01;
// The two levels are kept apart by at least this much, so that a pause stays defined in steady
// noise or silence.
constexpr double kMinimumSpanDb = 6.0;
constexpr double kPauseFraction = 0.8;

}  // namespace

AudioLevels::AudioLevels(size_t historyFrames) : mFrameDbfs(historyFrames, 0.0f) {}

void AudioLevels::reset(int64_t firstSample) {
    mSessionStart = firstSample;
    mFrames = 0;
    mEnergy = 0;
    mFill = 0;
    mSpeechDbfs = kInitialSpeechDbfs;
    mBackgroundDbfs = kInitialBackgroundDbfs;
    mLastSoundFrame = -1000000;
}

bool AudioLevels::add(int16_t sample) {
    mEnergy += static_cast<double>(sample) * sample;
    if (++mFill < kFrameSamples) return false;
    const double meanSquare = mEnergy / kFrameSamples / (32768.0 * 32768.0);
    const double level =
            meanSquare > 0 ? std::max(10.0 * std::log10(meanSquare), kSilenceDbfs) : kSilenceDbfs;
    mEnergy = 0;
    mFill = 0;
    mFrameDbfs[static_cast<size_t>(mFrames % static_cast<int64_t>(mFrameDbfs.size()))] =
            static_cast<float>(level);
    if (level > mBackgroundDbfs + kSoundAboveBackgroundDb) mLastSoundFrame = mFrames;
    ++mFrames;
    if (level > mSpeechDbfs) {
        mSpeechDbfs += kAttack * (level - mSpeechDbfs);
    } else {
        mSpeechDbfs -= kSpeechFallDbPerFrame;
    }
    if (level < mBackgroundDbfs) {
        mBackgroundDbfs += kAttack * (level - mBackgroundDbfs);
    } else {
        mBackgroundDbfs += kBackgroundRiseDbPerFrame;
    }
    mBackgroundDbfs = std::min(mBackgroundDbfs, mSpeechDbfs - kMinimumSpanDb);
    mSpeechDbfs = std::max(mSpeechDbfs, mBackgroundDbfs + kMinimumSpanDb);
    return true;
}

bool AudioLevels::isPause(int64_t begin, int64_t end) const {
    const double boundary = 0.5 * (mSpeechDbfs + mBackgroundDbfs);
    const int64_t kept = static_cast<int64_t>(mFrameDbfs.size());
    // Frames wholly inside [begin, end), numbered from the session start (negative: before it).
    const int64_t first = begin - mSessionStart >= 0
                                  ? (begin - mSessionStart + kFrameSamples - 1) / kFrameSamples
                                  : -((mSessionStart - begin) / kFrameSamples);
    const int64_t last = end - mSessionStart >= 0 ? (end - mSessionStart) / kFrameSamples
                                                  : -((mSessionStart - end + kFrameSamples - 1) /
                                                      kFrameSamples);  // one past
    if (last <= first) return false;
    if (last > mFrames || std::max<int64_t>(first, 0) < mFrames - kept) return false;
    int64_t quiet = 0;
    for (int64_t frame = first; frame < last; ++frame) {
        if (frame < 0 ||
            mFrameDbfs[static_cast<size_t>(frame % kept)] < static_cast<float>(boundary)) {
            ++quiet;
        }
    }
    return quiet >= static_cast<int64_t>(std::ceil(kPauseFraction * static_cast<double>(last - first)));
}

}  // namespace norvo_ps
