#include "ModelSet.h"

#include <norvo_ps/NorvoPs.h>
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "Recognizer.h"

namespace norvo_ps {

namespace {

std::string at(const Manifest& manifest, int line) {
    return manifest.path() + ":" + std::to_string(line) + ": ";
}

}  // namespace

NorvoStatus ModelSet::checkFiles(const Manifest& manifest, std::string* error) {
    // PocketSphinx ends the process on some unreadable model files instead of failing: find out
    // first, and say which line named the file.
    for (const char* part : {"mdef", "means", "variances", "transition_matrices"}) {
        std::string file = manifest.acousticModel() + "/" + part;
        if (access(file.c_str(), R_OK) != 0) {
            *error = at(manifest, manifest.acousticModelLine()) + "acoustic model folder '" +
                     manifest.acousticModel() + "' has no readable '" + part +
                     "': " + std::strerror(errno);
            return NORVO_PS_MANIFEST_UNREADABLE;
        }
    }
    std::ifstream dictionary(manifest.dictionary());
    if (!dictionary) {
        *error = at(manifest, manifest.dictionaryLine()) + "cannot read dictionary '" +
                 manifest.dictionary() + "': " + std::strerror(errno);
        return NORVO_PS_MANIFEST_UNREADABLE;
    }
    return NORVO_SUCCESS;
}

NorvoStatus ModelSet::load(const std::string& id, const std::string& manifestPath,
                           std::shared_ptr<const ModelSet>* out, std::string* error) {
    Manifest manifest;
    NorvoStatus status = Manifest::load(manifestPath, &manifest, error);
    if (status != NORVO_SUCCESS) return status;
    status = checkFiles(manifest, error);
    if (status != NORVO_SUCCESS) return status;

    std::unique_ptr<Recognizer> recognizer =
            Recognizer::open(manifest.acousticModel(), manifest.dictionary(),
                             manifest.detectionDelayFrames(), manifest.frequencyWarp(), error);
    if (recognizer == nullptr) {
        *error = manifest.path() + ": " + *error;
        return NORVO_PS_MODEL_LOAD_FAILED;
    }
    for (const ManifestPronunciation& pronunciation : manifest.pronunciations()) {
        if (!recognizer->addWord(pronunciation.word, pronunciation.phones)) {
            *error = at(manifest, pronunciation.line) + "pronunciation of '" + pronunciation.word +
                     "' uses a phone the acoustic model does not have: '" + pronunciation.phones +
                     "'";
            return NORVO_PS_UNKNOWN_WORD;
        }
    }

    std::shared_ptr<ModelSet> set(new ModelSet());
    set->mId = id;
    set->mManifestPath = manifest.path();
    set->mAcousticModel = manifest.acousticModel();
    set->mDetectionDelayFrames = manifest.detectionDelayFrames();
    set->mFrequencyWarp = manifest.frequencyWarp();
    set->mCommandPauseSamples = static_cast<int64_t>(manifest.commandPauseMs()) * 16;
    for (const ManifestKeyword& keyword : manifest.keywords()) {
        std::istringstream words(keyword.phrase);
        std::string word;
        while (words >> word) {
            // A word the search cannot find would make it drop the whole phrase without a word:
            // every one is looked up here, and a miss fails the model set.
            std::string phones = recognizer->lookup(word);
            if (phones.empty()) {
                *error = at(manifest, keyword.line) + "word '" + word + "' of phrase '" +
                         keyword.phrase + "' is not in the dictionary '" + manifest.dictionary() +
                         "' (add a 'pronounce' line)";
                return NORVO_PS_UNKNOWN_WORD;
            }
            bool known = false;
            for (const auto& entry : set->mWords) known |= entry.first == word;
            if (!known) set->mWords.emplace_back(word, phones);
        }
        set->mKeywords.push_back(Keyword{keyword.name, keyword.phrase, keyword.thresholdText,
                                         keyword.threshold, keyword.command});
    }
    *out = std::move(set);
    return NORVO_SUCCESS;
}

std::string ModelSet::attributesJson() const {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    auto names = [&](bool commands) {
        writer.StartArray();
        for (const Keyword& keyword : mKeywords) {
            if (keyword.command == commands) writer.String(keyword.name.c_str());
        }
        writer.EndArray();
    };
    writer.StartObject();
    writer.Key("model_attributes");
    writer.StartArray();
    writer.StartObject();
    writer.Key("model_id");
    writer.String(kModelId);
    writer.Key("engine");
    writer.String("pocketsphinx");
    writer.Key("manifest");
    writer.String(mManifestPath.c_str());
    writer.Key("keyword");
    writer.StartObject();
    writer.Key("supported-keyword-list");
    writer.StartArray();
    for (bool commands : {true, false}) {
        for (const Keyword& keyword : mKeywords) {
            if (keyword.command == commands) writer.String(keyword.name.c_str());
        }
    }
    writer.EndArray();
    writer.Key("wake-words");
    names(false);
    writer.Key("local-commands");
    names(true);
    writer.Key("phrases");
    writer.StartObject();
    for (const Keyword& keyword : mKeywords) {
        writer.Key(keyword.name.c_str());
        writer.String(keyword.phrase.c_str());
    }
    writer.EndObject();
    writer.EndObject();
    writer.EndObject();
    writer.EndArray();
    writer.EndObject();
    return buffer.GetString();
}

NorvoStatus ModelSet::selectKeywords(const std::string& keywordSet, const char* configJson,
                                     std::vector<size_t>* selected, bool* nearMiss,
                                     std::string* error) const {
    bool wakeOnly;
    if (keywordSet == "norvo") {
        wakeOnly = false;
    } else if (keywordSet == "playback") {
        wakeOnly = true;
    } else {
        *error = "unknown keyword set '" + keywordSet + "' (this engine knows 'norvo' and " +
                 "'playback')";
        return NORVO_PS_UNKNOWN_KEYWORD;
    }
    if (configJson == nullptr) {
        *error = "no decoder configuration";
        return NORVO_PS_INVALID_ARGUMENT;
    }
    rapidjson::Document config;
    config.Parse(configJson);
    if (config.HasParseError() || !config.IsObject()) {
        *error = std::string("decoder configuration is not a JSON object: '") + configJson + "'";
        return NORVO_PS_INVALID_ARGUMENT;
    }
    *nearMiss = false;
    auto beta = config.FindMember("betaEnabled");
    if (beta != config.MemberEnd()) {
        if (!beta->value.IsBool()) {
            *error = std::string(
                             "decoder configuration member 'betaEnabled' must be true or "
                             "false: '") +
                     configJson + "'";
            return NORVO_PS_INVALID_ARGUMENT;
        }
        *nearMiss = beta->value.GetBool();
    }

    selected->clear();
    auto keyword = config.FindMember("keyword");
    if (keyword == config.MemberEnd()) {
        for (size_t i = 0; i < mKeywords.size(); ++i) {
            if (!wakeOnly || !mKeywords[i].command) selected->push_back(i);
        }
        return NORVO_SUCCESS;
    }
    const rapidjson::Value* list = nullptr;
    if (keyword->value.IsObject()) {
        auto member = keyword->value.FindMember("enabled-keyword-list");
        if (member != keyword->value.MemberEnd() && member->value.IsArray()) list = &member->value;
    }
    bool allStrings = list != nullptr;
    for (size_t i = 0; allStrings && i < list->Size(); ++i) allStrings = (*list)[i].IsString();
    if (!allStrings) {
        *error = std::string(
                         "decoder configuration member 'keyword' must hold an array "
                         "'enabled-keyword-list' of strings: '") +
                 configJson + "'";
        return NORVO_PS_INVALID_ARGUMENT;
    }
    if (list->Empty()) {
        *error = "decoder configuration enables no keyword (empty 'enabled-keyword-list')";
        return NORVO_PS_INVALID_ARGUMENT;
    }
    for (const rapidjson::Value& name : list->GetArray()) {
        size_t found = mKeywords.size();
        for (size_t i = 0; i < mKeywords.size(); ++i) {
            if (mKeywords[i].name == name.GetString()) found = i;
        }
        if (found == mKeywords.size() || (wakeOnly && mKeywords[found].command)) {
            std::string known;
            for (const Keyword& k : mKeywords) {
                if (!wakeOnly || !k.command) known += (known.empty() ? "" : ", ") + k.name;
            }
            *error = std::string("enabled keyword '") + name.GetString() +
                     "' is not a keyword of model set '" + mId + "' for keyword set '" +
                     keywordSet + "' (it has " + known + ")";
            return NORVO_PS_UNKNOWN_KEYWORD;
        }
        bool already = false;
        for (size_t index : *selected) already |= index == found;
        if (!already) selected->push_back(found);
    }
    return NORVO_SUCCESS;
}

}  // namespace norvo_ps
