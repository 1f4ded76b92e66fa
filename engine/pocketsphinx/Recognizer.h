// One PocketSphinx decoder set up for keyword spotting: the only place that talks to PocketSphinx.
//
// Threads: a Recognizer is not thread-safe. Create it, use it and destroy it on one thread; this
// engine gives each decoder a thread of its own and a Recognizer on it. Opening serialises on a
// process-wide lock, since PocketSphinx's set-up shares process state (its logging module).
//
// Frames: the recognizer cuts audio into frames of samplesPerFrame() samples (10 ms). Silence is
// never removed, so frame n of a stream always starts at sample n * samplesPerFrame() of that
// stream. Segment frame numbers count from the last startStream(); a new utterance alone does not
// restart them.
//
// Scores: a segment's scoreLog10 is how much more likely the phrase is than the phone loop at its
// best end, as a base-10 logarithm; a phrase is detected when that exceeds log10(its threshold).
#ifndef NORVO_PS_RECOGNIZER_H
#define NORVO_PS_RECOGNIZER_H

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

typedef struct ps_decoder_s ps_decoder_t;
typedef struct cmd_ln_s cmd_ln_t;
typedef struct fe_s fe_t;

namespace norvo_ps {

class Recognizer {
  public:
    struct Segment {
        std::string phrase;  // as given to setKeywords()
        int startFrame = 0;
        int endFrame = 0;  // last frame of the phrase, inclusive
        double scoreLog10 = 0;
    };

    // Receives PocketSphinx's own warnings (level 3) and errors (level 2), one line each.
    typedef void (*LogSink)(int level, const char* message);
    // Routes PocketSphinx's logging to sink for the whole process; its informational chatter is
    // dropped. Call before the first open(); later calls replace the sink.
    static void routeLogs(LogSink sink);

    // Loads the acoustic model folder and, when dictionary is non-empty, that dictionary (otherwise
    // only the model's filler words). detectionDelayFrames: how long a detection must stay the best
    // before it is reported. frequencyWarp: every frequency is heard multiplied by it (1: none).
    // Null with *error set on failure.
    static std::unique_ptr<Recognizer> open(const std::string& acousticModel,
                                            const std::string& dictionary, int detectionDelayFrames,
                                            double frequencyWarp, std::string* error);
    ~Recognizer();
    Recognizer(const Recognizer&) = delete;
    Recognizer& operator=(const Recognizer&) = delete;

    // Adds a word with its phones (upper case, space separated). False when a phone is not in the
    // acoustic model.
    bool addWord(const std::string& word, const std::string& phones);
    // The word's phones, or "" when the dictionary does not have it.
    std::string lookup(const std::string& word);

    // Replaces the search with keyword spotting for these (phrase, threshold text) pairs; every
    // phrase word must be in the dictionary. False with *error set on failure.
    bool setKeywords(const std::vector<std::pair<std::string, std::string>>& phrases,
                     std::string* error);

    // Starts a new stream and an utterance in it: frame numbers restart at 0 and the search
    // forgets every earlier detection.
    bool startStream();
    // Decodes samples (mono, 16 kHz) into the current utterance. False on a recognizer error.
    bool process(const int16_t* samples, size_t count);
    // Ends the current utterance, decoding what is still buffered. Its detections stay readable
    // through segments() until the next startStream().
    void endUtterance();
    // The detections of the current utterance that are old enough to report (see
    // detectionDelayFrames), oldest first.
    void segments(std::vector<Segment>* out);

    // The cepstral mean the features are normalised by. PocketSphinx starts from the model's
    // stored value and replaces it with the mean of the audio heard at the first end of an
    // utterance, or after 8 s: until then a voice or microphone far from the model's training data
    // is heard through the wrong mean. resetCepstralMean() goes back to that start (as a new
    // recognizer would have it). measureCepstralMean() sets the mean to that of these samples'
    // own cepstra (frames with no energy left out, as PocketSphinx does), weighted as 5 s of
    // audio, so that later audio moves it gradually; false, leaving the mean as it was, when no
    // frame counts. Either takes effect from the next samples processed, and does nothing for a
    // model without mean normalisation. PocketSphinx's front end allocates as it goes (on every
    // frame, as when decoding); nothing else does.
    // The first unheeded samples only prime the measuring front end, as the same lead-in primes
    // the decoder's; their frames do not count.
    void resetCepstralMean();
    bool measureCepstralMean(const int16_t* samples, size_t count, size_t unheeded);

    int samplesPerFrame() const { return mSamplesPerFrame; }
    bool inUtterance() const { return mInUtterance; }

  private:
    Recognizer() = default;

    cmd_ln_t* mConfig = nullptr;
    ps_decoder_t* mDecoder = nullptr;
    fe_t* mMeasuringFrontEnd = nullptr;  // the decoder's front-end settings, its own state
    std::vector<float> mStoredMean;      // the model's start value
    std::vector<float> mCepstrum;        // scratch: one frame
    std::vector<double> mSum;            // scratch: the measured frames' sum
    int mSamplesPerFrame = 160;
    bool mInUtterance = false;
};

}  // namespace norvo_ps

#endif  // NORVO_PS_RECOGNIZER_H
