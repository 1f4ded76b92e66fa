// A loaded model set: a manifest whose files exist and whose phrase words all have a
// pronunciation, checked with the recognizer itself. Decoders take what they need from it: the
// acoustic model, the phones of every phrase word, and the keywords their configuration enables.
//
// A ModelSet is immutable once loaded and shared (std::shared_ptr<const ModelSet>) by the engine's
// table and every decoder built on it, so any thread may read it.
#ifndef NORVO_PS_MODEL_SET_H
#define NORVO_PS_MODEL_SET_H

#include <norvo/NorvoApi.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Manifest.h"

namespace norvo_ps {

class ModelSet {
  public:
    struct Keyword {
        std::string name;           // e.g. "HELLO_COMPUTER"
        std::string phrase;         // e.g. "hello computer"
        std::string thresholdText;  // e.g. "1e-20"
        double threshold = 0;
        bool command = false;
    };

    // The model-set attributes name the wake-word model with this id.
    static constexpr const char* kModelId = "norvo";

    // Reads the manifest and checks it against its dictionary and acoustic model (this loads the
    // dictionary: a few hundred milliseconds). Returns 0 or NORVO_PS_MANIFEST_UNREADABLE,
    // NORVO_PS_MANIFEST_MALFORMED, NORVO_PS_UNKNOWN_WORD, NORVO_PS_MODEL_LOAD_FAILED with *error
    // set to one line that names the manifest (and the line at fault, when there is one).
    static NorvoStatus load(const std::string& id, const std::string& manifestPath,
                            std::shared_ptr<const ModelSet>* out, std::string* error);

    const std::string& id() const { return mId; }
    const std::string& manifestPath() const { return mManifestPath; }
    const std::string& acousticModel() const { return mAcousticModel; }
    int detectionDelayFrames() const { return mDetectionDelayFrames; }
    double frequencyWarp() const { return mFrequencyWarp; }
    // The pause a local command needs before and after it, in samples (0: none).
    int64_t commandPauseSamples() const { return mCommandPauseSamples; }
    // In manifest order.
    const std::vector<Keyword>& keywords() const { return mKeywords; }
    // Every word of every phrase with its phones, each word once.
    const std::vector<std::pair<std::string, std::string>>& words() const { return mWords; }

    // {"model_attributes":[{"model_id":"norvo","keyword":{"supported-keyword-list":[...],
    // "wake-words":[...],"local-commands":[...],"phrases":{...}},...}]}; the supported list holds
    // the local commands, then the wake phrases, each in manifest order.
    std::string attributesJson() const;

    // Chooses the keywords a decoder spots from its keyword-set name ("norvo": every keyword;
    // "playback": wake phrases only) and its configuration JSON. An "enabled-keyword-list" under
    // "keyword" selects keywords by name, in its order, each once; without a "keyword" member
    // (the configuration "{}") every keyword of the set is enabled. "betaEnabled" (bool) is
    // reported through *nearMiss. Returns 0, NORVO_PS_INVALID_ARGUMENT (malformed configuration,
    // empty list) or NORVO_PS_UNKNOWN_KEYWORD (a name the set does not define, unknown set name),
    // with *error set on failure.
    NorvoStatus selectKeywords(const std::string& keywordSet, const char* configJson,
                               std::vector<size_t>* selected, bool* nearMiss,
                               std::string* error) const;

  private:
    ModelSet() = default;
    static NorvoStatus checkFiles(const Manifest& manifest, std::string* error);

    std::string mId;
    std::string mManifestPath;
    std::string mAcousticModel;
    int mDetectionDelayFrames = 0;
    double mFrequencyWarp = 1.0;
    int64_t mCommandPauseSamples = 0;
    std::vector<Keyword> mKeywords;
    std::vector<std::pair<std::string, std::string>> mWords;
};

}  // namespace norvo_ps

#endif  // NORVO_PS_MODEL_SET_H
