#include "NoiseFloor.h"

#include <algorithm>
#include <cmath>

namespace norvo_ps {

namespace {

// White noise through a one-pole low-pass: a floor that falls with frequency like a real room's
// and microphone's. Measured against white noise, it costs less recall on clean natural voices
// and gains as much on synthetic and narrow-band ones.
constexpr float kShapePole = 0.95f;

}  // namespace

void NoiseFloor::reset() {
    mRandom = 0x9E3779B9u;
    mShaped = 0;
    setLevel(kLowestDbfs + kBelowSpeechDb, kHoldFrames + kFadeFrames);
}

void NoiseFloor::setLevel(double speechDbfs, int64_t framesSinceSound) {
    const int64_t left = std::clamp<int64_t>(kHoldFrames + kFadeFrames - framesSinceSound, 0,
                                             kFadeFrames);
    const float presence = static_cast<float>(left) / kFadeFrames;
    const double floorDbfs = std::clamp(speechDbfs - kBelowSpeechDb, kLowestDbfs, kHighestDbfs);
    mNoiseScale = presence * static_cast<float>(32768.0 * std::pow(10.0, floorDbfs / 20.0));
}

float NoiseFloor::gaussian() {
    // Four uniforms from xorshift32: close enough to Gaussian for a noise floor, and cheap.
    float sum = 0;
    for (int i = 0; i < 4; ++i) {
        mRandom ^= mRandom << 13;
        mRandom ^= mRandom >> 17;
        mRandom ^= mRandom << 5;
        sum += static_cast<float>(mRandom) * (1.0f / 4294967296.0f) - 0.5f;
    }
    return sum * 1.7320508f;  // unit variance
}

int16_t NoiseFloor::next(int16_t sample) {
    // The input gain keeps the filtered noise at unit variance.
    static const float kInputGain = std::sqrt(1.0f - kShapePole * kShapePole);
    mShaped = kShapePole * mShaped + kInputGain * gaussian();
    const float value = static_cast<float>(sample) + mNoiseScale * mShaped;
    return static_cast<int16_t>(std::lrintf(std::clamp(value, -32768.0f, 32767.0f)));
}

}  // namespace norvo_ps
