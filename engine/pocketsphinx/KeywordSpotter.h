// Spots a model set's keywords in a stream of 16 kHz mono audio whose samples carry the caller's
// indices, and reports each spoken keyword once, with the indices of its first and last sample.
//
// What it adds to the recognizer: the mapping from recognizer frames back to the caller's sample
// indices; one report per spoken keyword, although the recognizer lists every detection again and
// again until it is restarted; a restart after every report and at least once a minute, re-feeding
// the audio heard since the report (or the last seconds) so that nothing spoken across a restart
// is lost; a new stream whenever the caller's indices jump; and a cepstral mean measured on each
// session's own first second of sound, the phrase in it decoded again with it (see
// Recognizer::measureCepstralMean), so that what a session hears does not depend on what came
// before it.
//
// Threads: not thread-safe; create, feed and destroy it on one thread (it owns a Recognizer).
#ifndef NORVO_PS_KEYWORD_SPOTTER_H
#define NORVO_PS_KEYWORD_SPOTTER_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "AudioLevels.h"
#include "BandExtension.h"
#include "ModelSet.h"
#include "NoiseFloor.h"
#include "Recognizer.h"

namespace norvo_ps {

struct Detection {
    size_t keyword = 0;       // index into the model set's keywords()
    int64_t beginSample = 0;  // first sample of the phrase, on the caller's scale
    int64_t endSample = 0;    // last sample of the phrase, inclusive
    int startFrame = 0;       // recognizer frames within its current stream, lead-in included
    int endFrame = 0;
    double scoreLog10 = 0;  // see Recognizer; at least log10 of the keyword's threshold
    int64_t decidedAt = 0;  // one past the last sample heard when the report was made
};

class KeywordSpotter {
  public:
    static constexpr int64_t kSampleRate = 16000;
    // The recognizer is restarted at least this often: its detection list, and the time every
    // hypothesis takes to build, grow until it is.
    static constexpr int64_t kRestartIntervalSamples = 60 * kSampleRate;
    // Audio kept for re-feeding after a restart, and how much a periodic restart re-feeds: longer
    // than any phrase, so that one spoken across the restart is heard whole again.
    static constexpr int64_t kHistorySamples = 4 * kSampleRate;
    static constexpr int64_t kRefeedSamples = 3 * kSampleRate;
    // Frames of silence endSession() decodes after the audio, beyond the detection delay: the
    // recognizer's features lag the audio by a few frames, and a phrase's last sound needs a few
    // more to end (measured: 5 are too few for a phrase that ends the audio, 8 suffice).
    static constexpr int kFlushFrames = 10;
    // The cepstral mean is measured over the session's first sound from a little before it to
    // this long after it, or over what there is when the session ends sooner (but not under
    // kMinMeanSamples of sound).
    static constexpr int64_t kMeanLeadSamples = kSampleRate / 4;
    static constexpr int64_t kMeanSoundSamples = kSampleRate;
    static constexpr int64_t kMinMeanSamples = kSampleRate / 4;
    // Every recognizer stream begins with this many frames of the noise floor alone. The keyword
    // search enters a phrase only from its phone loop, which needs a few frames behind it, and
    // a phrase's first sound is heard from the quiet before it: a phrase said from a stream's
    // very first sample was never heard.
    static constexpr int kLeadInFrames = 20;

    // Opens a recognizer for the keywords of modelSet at the given indices (ModelSet order is
    // kept). Null with *error set when PocketSphinx cannot be set up.
    static std::unique_ptr<KeywordSpotter> create(std::shared_ptr<const ModelSet> modelSet,
                                                  const std::vector<size_t>& keywords,
                                                  std::string* error);

    // Decodes count mono samples whose first has index firstSample, appending new reports to out
    // in the order the phrases were spoken. A firstSample other than the one after the previous
    // call ends the session (as endSession) and starts a new one there.
    void feed(const int16_t* samples, size_t count, int64_t firstSample,
              std::vector<Detection>* out);
    // Decodes what is still buffered, reports what that finds, and forgets the stream: the next
    // feed() starts afresh at its own index.
    void endSession(std::vector<Detection>* out);

    const ModelSet& modelSet() const { return *mModelSet; }
    const std::vector<size_t>& keywords() const { return mKeywords; }
    uint64_t restarts() const { return mRestarts; }
    bool recognizerFailed() const { return mRecognizerFailed; }

  private:
    struct Range {
        int64_t begin;
        int64_t end;
    };

    KeywordSpotter() = default;
    void startAt(int64_t sample);
    // Decodes one frame of the noise floor alone (after the audio, to end a session).
    void processFloorOnly();
    // Adds samples to the history; they must follow the ones before and fit beside the samples
    // not decoded yet.
    void remember(const int16_t* samples, size_t count, int64_t firstSample);
    // Decodes the history from mFed to mNext, restarting after reports and once a minute.
    void decodeRemembered(std::vector<Detection>* out);
    // Starts a new recognizer stream at from (within the history); decoding resumes there.
    void restart(int64_t from);
    // What a new stream does with the cepstral mean: keeps it, goes back to the model's, or
    // measures it over history samples [meanBegin, meanEnd).
    enum class Mean { kKeep, kReset, kMeasure };
    // Starts a recognizer stream whose audio begins at sample from, with the lead-in (the first
    // kLeadInFrames of mMeanSamples) before it.
    void beginStream(int64_t from, Mean mean, int64_t meanBegin = 0, int64_t meanEnd = 0);
    // Once the session's first sound has been decoded long enough (or the session ends, when
    // final), measures the cepstral mean over it and restarts the recognizer just before it:
    // true when it did, and decoding must go on from mFed.
    bool measureMeanWhenDue(bool final);
    void collect(std::vector<Detection>* out);
    bool overlapsReported(int64_t begin, int64_t end) const;
    // For a local command: whether it was said on its own, a pause before and after it. Unknown
    // while the audio after it has not arrived yet.
    enum class Isolation { kAlone, kInSpeech, kNotYetKnown };
    Isolation isolation(const Detection& detection) const;

    std::shared_ptr<const ModelSet> mModelSet;
    std::vector<size_t> mKeywords;
    std::unique_ptr<Recognizer> mRecognizer;
    std::vector<Recognizer::Segment> mSegments;  // scratch, reused
    std::vector<int16_t> mFloorOnly;              // scratch: one frame of the floor alone

    bool mInSession = false;
    int64_t mBase = 0;  // caller's index of the recognizer stream's frame 0 (in the lead-in)
    int64_t mStreamStart = 0;  // caller's index of the stream's first sample after the lead-in
    int64_t mFed = 0;   // index of the next sample to hand the recognizer
    int64_t mNext = 0;  // index of the sample after the last one the caller gave

    // The last kHistorySamples samples, at index % kHistorySamples, from mHistoryStart to mNext,
    // with the noise floor added: a restart re-feeds exactly what was heard before.
    std::vector<int16_t> mHistory;
    AudioLevels mLevels{static_cast<size_t>(kHistorySamples / AudioLevels::kFrameSamples)};
    NoiseFloor mFloor;
    BandExtension mBand;
    bool mEnding = false;  // endSession() is decoding past the audio's end
    int64_t mFirstSound = -1;  // first sample of the session's first sound; -1 before it
    bool mMeanMeasured = false;
    // The lead-in (fixed), then room for the stretch the mean is measured over (scratch).
    std::vector<int16_t> mMeanSamples;
    int64_t mHistoryStart = 0;

    // Recent reports. The recognizer lists a detection again and again until it restarts; where it
    // is not restarted after a report (while a session ends) these keep it from being reported
    // twice.
    std::vector<Range> mReported;
    int64_t mReportedEnd = -1;     // end of the latest report
    uint64_t mRestarts = 0;
    bool mRecognizerFailed = false;
};

}  // namespace norvo_ps

#endif  // NORVO_PS_KEYWORD_SPOTTER_H
