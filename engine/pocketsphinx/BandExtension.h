// Fills the empty upper band of audio that passed through an 8 kHz link (a phone call, a Bluetooth
// headset, an 8 kHz recording played at 16 kHz) before the recognizer hears it.
//
// Why: the acoustic model's mel bands reach 6.8 kHz and it was trained on wide-band speech. Audio
// with nothing above 4 kHz gives its upper bands (near) zero energy, so a quarter of every frame's
// spectrum says "silence" while the rest says speech, and the cepstrum that results matches no
// sound the model knows. A noise floor helps only a little: noise is flat in time, speech is not.
//
// How: the upper band gets a quieter mirror image of the lower one (spectral folding: the signal
// times (-1)^n moves each frequency f to 8 kHz - f), so 1.2 to 4 kHz shows up, reversed, at 4 to
// 6.8 kHz with the same timing as the speech: fricatives and bursts light it up, vowels much less.
// It is added only while the audio is measured to be narrow-band: over the recent speech frames,
// the energy above 5.2 kHz lies more than kNarrowBelowDb below the whole band's. Wide-band speech
// and noisy audio (noise fills the band) pass unchanged.
//
// Deterministic: the mirror's sign follows the caller's sample index, so the same audio gives the
// same output however it is cut into pieces.
//
// Threads: not thread-safe; one per keyword spotter, on its decoder thread. Never allocates.
#ifndef NORVO_PS_BAND_EXTENSION_H
#define NORVO_PS_BAND_EXTENSION_H

#include <cstdint>

namespace norvo_ps {

class BandExtension {
  public:
    // The mirror's level relative to the audio it is made from (dB).
    static constexpr double kMirrorDb = -6.0;
    // Narrow-band when the upper band's energy over recent speech lies this far below the whole.
    static constexpr double kNarrowBelowDb = 45.0;
    // Frames (10 ms) louder than this relative to the caller's speech level count as speech.
    static constexpr double kSpeechWithinDb = 15.0;

    BandExtension();
    // A new session: the band is assumed wide until speech says otherwise.
    void reset();
    // One sample, with index sampleIndex in the caller's stream, and the speech level (dB full
    // scale) that the caller tracks. Returns the sample with the mirror added while narrow-band.
    int16_t next(int16_t sample, int64_t sampleIndex, double speechDbfs);
    bool narrowBand() const { return mNarrow; }

  private:
    struct Biquad {
        float b0 = 0, b1 = 0, b2 = 0, a1 = 0, a2 = 0;
        float z1 = 0, z2 = 0;
        float run(float x);
    };

    Biquad mHighPass[4];  // an eighth-order high-pass at 5.2 kHz: measures the upper band
    double mFrameAll = 0;
    double mFrameHigh = 0;
    int mFill = 0;
    double mHighBelowDb = 0;  // running mean over speech frames of upper band minus whole band
    int mSpeechFrames = 0;
    bool mNarrow = false;
    const float mMirror;    // kMirrorDb as a gain
    float mMirrorGain = 0;  // fades in and out to mMirror rather than switching
};

}  // namespace norvo_ps

#endif  // NORVO_PS_BAND_EXTENSION_H
