#include "BandExtension.h"

#include <algorithm>
#include <cmath>

namespace norvo_ps {

namespace {

constexpr double kSampleRate = 16000.0;
constexpr double kUpperBandHz = 5200.0;
constexpr int kFrameSamples = 160;
// The mean follows about the last 30 speech frames; the first 20 decide nothing.
constexpr double kMeanWeight = 1.0 / 30.0;
constexpr int kFramesBeforeDeciding = 20;
// Hysteresis: once narrow, the band must come within this much more of the whole to count as wide.
constexpr double kHysteresisDb = 6.0;
// The mirror fades in or out over about 100 ms.
constexpr float kGainStep = 1.0f / 1600.0f;

}  // namespace

float BandExtension::Biquad::run(float x) {
    const float y = b0 * x + z1;
    z1 = b1 * x - a1 * y + z2;
    z2 = b2 * x - a2 * y;
    return y;
}

BandExtension::BandExtension() : mMirror(static_cast<float>(std::pow(10.0, kMirrorDb / 20.0))) {
    // Four sections make an eighth-order Butterworth high-pass: 3.5 kHz, where narrow-band audio
    // still has some speech, lies 48 dB down, so only what wide-band audio has above 5 kHz counts.
    const double q[4] = {0.5098, 0.6013, 0.9000, 2.5629};
    const double w = 2.0 * M_PI * kUpperBandHz / kSampleRate;
    for (int i = 0; i < 4; ++i) {
        const double alpha = std::sin(w) / (2.0 * q[i]);
        const double a0 = 1.0 + alpha;
        Biquad& f = mHighPass[i];
        f.b0 = static_cast<float>((1.0 + std::cos(w)) / 2.0 / a0);
        f.b1 = static_cast<float>(-(1.0 + std::cos(w)) / a0);
        f.b2 = f.b0;
        f.a1 = static_cast<float>(-2.0 * std::cos(w) / a0);
        f.a2 = static_cast<float>((1.0 - alpha) / a0);
    }
    reset();
}

void BandExtension::reset() {
    for (Biquad& f : mHighPass) f.z1 = f.z2 = 0;
    mFrameAll = mFrameHigh = 0;
    mFill = 0;
    mHighBelowDb = 0;
    mSpeechFrames = 0;
    mNarrow = false;
    mMirrorGain = 0;
}

int16_t BandExtension::next(int16_t sample, int64_t sampleIndex, double speechDbfs) {
    const float x = sample;
    float high = x;
    for (Biquad& f : mHighPass) high = f.run(high);
    mFrameAll += static_cast<double>(x) * x;
    mFrameHigh += static_cast<double>(high) * high;
    if (++mFill == kFrameSamples) {
        const double frameDbfs =
                10.0 * std::log10(mFrameAll / kFrameSamples / (32768.0 * 32768.0) + 1e-12);
        if (frameDbfs > speechDbfs - kSpeechWithinDb) {
            const double below = 10.0 * std::log10((mFrameHigh + 1e-3) / (mFrameAll + 1e-3));
            mHighBelowDb = mSpeechFrames == 0 ? below
                                              : mHighBelowDb + kMeanWeight * (below - mHighBelowDb);
            if (++mSpeechFrames >= kFramesBeforeDeciding) {
                mNarrow = mNarrow ? mHighBelowDb < -kNarrowBelowDb + kHysteresisDb
                                  : mHighBelowDb < -kNarrowBelowDb;
            }
        }
        mFrameAll = mFrameHigh = 0;
        mFill = 0;
    }
    mMirrorGain = mNarrow ? std::min(mMirror, mMirrorGain + kGainStep * mMirror)
                          : std::max(0.0f, mMirrorGain - kGainStep * mMirror);
    if (mMirrorGain == 0) return sample;
    const float mirrored = (sampleIndex & 1) != 0 ? -x : x;
    return static_cast<int16_t>(
            std::lrintf(std::clamp(x + mMirrorGain * mirrored, -32768.0f, 32767.0f)));
}

}  // namespace norvo_ps
