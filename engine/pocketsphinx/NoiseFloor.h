// A low, steady noise floor added to the audio before the recognizer hears it.
//
// Why: the recognizer takes the logarithm of each mel band's energy. The gaps between the formants
// of synthetic speech and the empty upper half of audio that went through an 8 kHz link give bands
// of (near) zero energy whose logarithms lie far below anything the acoustic model was trained on
// (its recordings always had a room and a microphone behind them). Such speech is heard worse clean
// than with a little noise. The floor gives every band a plausible minimum: noise a fixed distance
// below the speech level (which the caller tracks), within absolute bounds, so that it is inaudible
// on ordinary recordings, changes nothing on noisy ones and behaves alike at any input level.
//
// The floor fades out in long stretches without sound: the recognizer leaves frames of digital
// silence out of its running cepstral mean, and a floor there would drag that mean towards silence
// for the speech that follows.
//
// Deterministic: the noise comes from a generator seeded by reset(), so the same audio after the
// same reset always gives the same samples, however it is cut into pieces.
//
// Threads: not thread-safe; one per keyword spotter, on its decoder thread. Never allocates.
#ifndef NORVO_PS_NOISE_FLOOR_H
#define NORVO_PS_NOISE_FLOOR_H

#include <cstddef>
#include <cstdint>

namespace norvo_ps {

class NoiseFloor {
  public:
    // Floor level relative to the speech level, and its absolute bounds (dB full scale, rms of the
    // added noise).
    static constexpr double kBelowSpeechDb = 30.0;
    static constexpr double kLowestDbfs = -75.0;
    static constexpr double kHighestDbfs = -45.0;
    // The floor stays this many 10 ms frames after the last sound, then fades out over
    // kFadeFrames.
    static constexpr int64_t kHoldFrames = 100;
    static constexpr int64_t kFadeFrames = 50;

    // Restarts the noise sequence, with the floor off.
    void reset();
    // Sets the floor for speech at speechDbfs, framesSinceSound frames after the last sound.
    void setLevel(double speechDbfs, int64_t framesSinceSound);
    // One sample: the input with the floor added (saturating).
    int16_t next(int16_t sample);

  private:
    float gaussian();

    float mNoiseScale = 0;  // rms of the added noise in sample units
    uint32_t mRandom = 1;
    float mShaped = 0;  // the low-pass filter's state
};

}  // namespace norvo_ps

#endif  // NORVO_PS_NOISE_FLOOR_H
