// A model-set manifest: which acoustic model and dictionary to use, the wake phrases and local
// commands with their detection thresholds, extra pronunciations and decoder options. The format is
// line based; README.md next to this file documents it. Parsing checks the syntax only: whether
// the files exist and the words are in the dictionary is checked by ModelSet, which has the
// recognizer at hand.
//
// Errors are reported as one line naming the manifest and, for a line's fault, its number:
//   "<path>:<line>: <what is wrong>"
// Thread-compatible; no shared state.
#ifndef NORVO_PS_MANIFEST_H
#define NORVO_PS_MANIFEST_H

#include <norvo/NorvoApi.h>

#include <string>
#include <vector>

namespace norvo_ps {

struct ManifestKeyword {
    std::string name;           // as the service names it, e.g. "HELLO_COMPUTER" or "STOP"
    std::string phrase;         // lower-case words separated by one space, e.g. "hello computer"
    std::string thresholdText;  // as written, e.g. "1e-20"
    double threshold = 0;       // above 0
    bool command = false;       // a local command rather than a wake phrase
    int line = 0;
};

struct ManifestPronunciation {
    std::string word;    // lower case
    std::string phones;  // upper case, separated by one space
    int line = 0;
};

class Manifest {
  public:
    // Frames (10 ms each) the recognizer waits after a phrase's best end before reporting it.
    static constexpr int kDefaultDetectionDelayFrames = 6;
    static constexpr int kMaxDetectionDelayFrames = 50;
    // A local command counts only with this much of a pause before and after it (milliseconds);
    // 0 hears commands inside sentences too.
    static constexpr int kDefaultCommandPauseMs = 250;
    static constexpr int kMaxCommandPauseMs = 2000;
    // The recognizer hears every frequency multiplied by this factor (1: as recorded). Above 1
    // suits voices lower than the acoustic model's own speakers.
    static constexpr double kMinFrequencyWarp = 0.8;
    static constexpr double kMaxFrequencyWarp = 1.25;

    // Reads and parses the file. Returns 0, NORVO_PS_MANIFEST_UNREADABLE or
    // NORVO_PS_MANIFEST_MALFORMED; on failure *error holds the one-line reason.
    static NorvoStatus load(const std::string& path, Manifest* out, std::string* error);
    // Parses text as the manifest at path (path names it in messages and anchors relative paths).
    static NorvoStatus parse(const std::string& path, const std::string& text, Manifest* out,
                             std::string* error);

    const std::string& path() const { return mPath; }
    // Absolute or relative to the manifest's folder as written; resolved here.
    const std::string& acousticModel() const { return mAcousticModel; }
    const std::string& dictionary() const { return mDictionary; }
    int acousticModelLine() const { return mAcousticModelLine; }
    int dictionaryLine() const { return mDictionaryLine; }
    const std::vector<ManifestKeyword>& keywords() const { return mKeywords; }
    const std::vector<ManifestPronunciation>& pronunciations() const { return mPronunciations; }
    int detectionDelayFrames() const { return mDetectionDelayFrames; }
    int commandPauseMs() const { return mCommandPauseMs; }
    double frequencyWarp() const { return mFrequencyWarp; }

  private:
    NorvoStatus parseLine(int line, const std::vector<std::string>& fields, std::string* error);
    // "<directive> <count>": a whole number from 0 to max, given at most once.
    NorvoStatus parseCount(int line, const std::vector<std::string>& fields, const char* unit,
                           int max, bool* given, int* value, std::string* error) const;
    std::string resolve(const std::string& file) const;
    std::string where(int line) const;

    std::string mPath;
    std::string mFolder;
    std::string mAcousticModel;
    std::string mDictionary;
    int mAcousticModelLine = 0;
    int mDictionaryLine = 0;
    std::vector<ManifestKeyword> mKeywords;
    std::vector<ManifestPronunciation> mPronunciations;
    int mDetectionDelayFrames = kDefaultDetectionDelayFrames;
    bool mDelayGiven = false;
    int mCommandPauseMs = kDefaultCommandPauseMs;
    bool mCommandPauseGiven = false;
    double mFrequencyWarp = 1.0;
    bool mWarpGiven = false;
};

}  // namespace norvo_ps

#endif  // NORVO_PS_MANIFEST_H
