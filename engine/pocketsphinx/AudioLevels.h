// Levels of the audio a keyword spotter hears, in 10 ms frames: the level of each recent frame, the
// level of the speech in it and the level of the background between words.
//
// The spotter uses them twice: the noise floor it adds sits a fixed distance below the speech
// level, and a local command counts only when said on its own, with a pause before and after it,
// where a pause is a stretch of frames nearer the background level than the speech level.
//
// Frames are counted from the session's first sample (reset()); the last historyFrames are kept.
// Audio before the session counts as a pause: a command that opens a session was said on its own.
//
// Threads: not thread-safe; one per spotter, on its decoder thread. Never allocates after reset().
#ifndef NORVO_PS_AUDIO_LEVELS_H
#define NORVO_PS_AUDIO_LEVELS_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace norvo_ps {

class AudioLevels {
  public:
    static constexpr int kFrameSamples = 160;
    // The speech and background levels assumed before any audio has been heard (dB full scale).
    static constexpr double kInitialSpeechDbfs = -26.0;
    static constexpr double kInitialBackgroundDbfs = -70.0;
    // The quietest level measured: digital silence counts as this.
    static constexpr double kSilenceDbfs = -100.0;

    explicit AudioLevels(size_t historyFrames);

    // A new session whose first sample has index firstSample; levels start from their initial
    // values again.
    void reset(int64_t firstSample);
    // The next sample of the session (index: the one after the previous sample). Returns true when
    // it completed a frame, whose level is then current.
    bool add(int16_t sample);

    double speechDbfs() const { return mSpeechDbfs; }
    // Frames since the last one that stood out from the background (by kSoundAboveBackgroundDb),
    // counted up to the session's frames.
    int64_t framesSinceSound() const { return mFrames - mLastSoundFrame; }
    static constexpr double kSoundAboveBackgroundDb = 10.0;
    // Whether the samples [begin, end) are a pause: at least 80% of the frames wholly inside them
    // are nearer the background than the speech level. Frames before the session count as pause;
    // frames not heard yet, or no longer kept, do not.
    bool isPause(int64_t begin, int64_t end) const;
    // One past the last sample of the last complete frame.
    int64_t framedEnd() const { return mSessionStart + mFrames * kFrameSamples; }

  private:
    std::vector<float> mFrameDbfs;  // ring: frame n at n % size
    int64_t mSessionStart = 0;
    int64_t mFrames = 0;  // complete frames so far
    double mEnergy = 0;
    int mFill = 0;
    double mSpeechDbfs = kInitialSpeechDbfs;
    double mBackgroundDbfs = kInitialBackgroundDbfs;
    int64_t mLastSoundFrame = -1000000;
};

}  // namespace norvo_ps

#endif  // NORVO_PS_AUDIO_LEVELS_H
