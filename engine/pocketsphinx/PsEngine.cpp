#include "PsEngine.h"

#include "Recognizer.h"

namespace norvo_ps {

namespace {

const char* const kLibraryAttributes =
        "{\"engine\":\"norvo-pocketsphinx\",\"version\":\"1.0\","
        "\"recognizer\":\"PocketSphinx 5prealpha keyword spotting\",\"decoders\":[\"spotter\"]}";

std::string text(const char* s) {
    return s == nullptr ? "(null)" : s;
}

std::string keywordNames(const ModelSet& set, bool commands) {
    std::string names;
    for (const ModelSet::Keyword& keyword : set.keywords()) {
        if (keyword.command == commands) names += (names.empty() ? "" : ", ") + keyword.name;
    }
    return names.empty() ? "none" : names;
}

}  // namespace

PsEngine& PsEngine::instance() {
    static PsEngine* engine = new PsEngine();  // never destroyed: decoder threads may outlive exit
    return *engine;
}

PsEngine::PsEngine() {
    Recognizer::routeLogs(&PsEngine::recognizerLog);
}

void PsEngine::recognizerLog(int level, const char* message) {
    instance().mCallbacks.log(level, "PocketSphinx: %s", message);
}

const char* PsEngine::attributes() const {
    return kLibraryAttributes;
}

NorvoStatus PsEngine::newModelSet(const char* id, const char* manifestPath, const char* options) {
    if (id == nullptr || manifestPath == nullptr) {
        mCallbacks.log(kLogError, "model set '%s' not created (status %d): no id or manifest path",
                       text(id).c_str(), NORVO_PS_INVALID_ARGUMENT);
        return NORVO_PS_INVALID_ARGUMENT;
    }
    if (options != nullptr && *options != '\0') {
        mCallbacks.log(kLogDebug, "model set '%s': options '%s' ignored", id, options);
    }
    std::shared_ptr<const ModelSet> set;
    std::string error;
    NorvoStatus status;
    {
        std::lock_guard<std::mutex> guard(mStructureLock);
        if (mModelSets.count(id) != 0) {
            status = NORVO_PS_ALREADY_EXISTS;
            error = "the id is in use";
        } else {
            status = ModelSet::load(id, manifestPath, &set, &error);
            if (status == NORVO_SUCCESS) mModelSets[id] = set;
        }
    }
    if (status != NORVO_SUCCESS) {
        mCallbacks.log(kLogError, "model set '%s' not created (status %d): %s", id, status,
                       error.c_str());
        return status;
    }
    mCallbacks.log(kLogInfo, "model set '%s' loaded from '%s': wake words %s; local commands %s",
                   id, manifestPath, keywordNames(*set, false).c_str(),
                   keywordNames(*set, true).c_str());
    return NORVO_SUCCESS;
}

NorvoStatus PsEngine::deleteModelSet(const char* id) {
    NorvoStatus status = NORVO_SUCCESS;
    {
        std::lock_guard<std::mutex> guard(mStructureLock);
        if (id == nullptr || mModelSets.count(id) == 0) {
            status = NORVO_PS_NOT_FOUND;
        } else if (mDecoders.usesModelSet(id)) {
            status = NORVO_PS_IN_USE;
        } else {
            mModelSets.erase(id);
        }
    }
    if (status == NORVO_PS_NOT_FOUND) {
        // The service deletes model sets whether or not it managed to create them.
        mCallbacks.log(kLogDebug, "model set '%s' not deleted (status %d): no such model set",
                       text(id).c_str(), status);
    } else if (status == NORVO_PS_IN_USE) {
        mCallbacks.log(kLogError, "model set '%s' not deleted (status %d): decoders still use it",
                       id, status);
    } else {
        mCallbacks.log(kLogInfo, "model set '%s' deleted", id);
    }
    return status;
}

NorvoStatus PsEngine::modelSetAttributes(const char* id, ModelSetAttributesCallback cb,
                                         void* userData) {
    std::shared_ptr<const ModelSet> set;
    {
        std::lock_guard<std::mutex> guard(mStructureLock);
        auto found = id == nullptr ? mModelSets.end() : mModelSets.find(id);
        if (found == mModelSets.end()) return NORVO_PS_NOT_FOUND;
        set = found->second;
    }
    if (cb == nullptr) return NORVO_PS_INVALID_ARGUMENT;
    // Synchronously, before returning: the caller reads what the callback stored right after.
    std::string json = set->attributesJson();
    cb(json.c_str(), userData);
    return NORVO_SUCCESS;
}

NorvoStatus PsEngine::newSpotterDecoder(const char* id, const char* modelSetId,
                                        const char* keywordSet,
                                        const NorvoMultichannelAudioFormat& format,
                                        const char* configJson) {
    SpotterDecoder::Options options;
    std::string error;
    NorvoStatus status = NORVO_SUCCESS;
    std::shared_ptr<SpotterDecoder> decoder;
    if (id == nullptr || modelSetId == nullptr || keywordSet == nullptr) {
        status = NORVO_PS_INVALID_ARGUMENT;
        error = "no decoder id, model-set id or keyword set";
    } else {
        std::lock_guard<std::mutex> guard(mStructureLock);
        status = createDecoder_l(id, modelSetId, keywordSet, format, configJson, &options, &decoder,
                                 &error);
    }
    if (status != NORVO_SUCCESS) {
        if (decoder != nullptr) decoder->stop();
        mCallbacks.log(kLogError, "decoder '%s' not created (status %d): %s", text(id).c_str(),
                       status, error.c_str());
        return status;
    }
    std::string spots;
    for (size_t index : options.keywords) {
        spots += (spots.empty() ? "" : ", ") + options.modelSet->keywords()[index].name;
    }
    mCallbacks.log(kLogInfo, "decoder '%s' on model set '%s' spots %s (%u channel%s, thread %d)",
                   id, modelSetId, spots.c_str(), options.channels,
                   options.channels == 1 ? "" : "s", decoder->threadId());
    if (options.nearMiss) {
        mCallbacks.log(kLogInfo,
                       "decoder '%s': near-miss reporting requested; this engine reports "
                       "accepted detections only",
                       id);
    }
    return NORVO_SUCCESS;
}

NorvoStatus PsEngine::createDecoder_l(const char* id, const char* modelSetId,
                                      const char* keywordSet,
                                      const NorvoMultichannelAudioFormat& format,
                                      const char* configJson, SpotterDecoder::Options* options,
                                      std::shared_ptr<SpotterDecoder>* decoder,
                                      std::string* error) {
    auto found = mModelSets.find(modelSetId);
    if (found == mModelSets.end()) {
        *error = "no model set '" + std::string(modelSetId) + "'";
        return NORVO_PS_NOT_FOUND;
    }
    if (mDecoders.contains(id)) {
        *error = "the id is in use";
        return NORVO_PS_ALREADY_EXISTS;
    }
    uint32_t rate = format.words[NORVO_AUDIO_FORMAT_WORD_SAMPLE_RATE];
    uint32_t bits = format.words[NORVO_AUDIO_FORMAT_WORD_BITS_PER_SAMPLE];
    uint32_t channels = format.words[NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT];
    if (rate != 16000 || bits != 16 || channels < 1 || channels > 8) {
        *error = "audio format " + std::to_string(rate) + " Hz, " + std::to_string(bits) +
                 " bits, " + std::to_string(channels) +
                 " channels is not supported (16000 Hz, 16 bits, 1 to 8 channels)";
        return NORVO_PS_UNSUPPORTED_AUDIO_FORMAT;
    }
    options->id = id;
    options->modelSet = found->second;
    options->channels = channels;
    NorvoStatus status = found->second->selectKeywords(keywordSet, configJson, &options->keywords,
                                                       &options->nearMiss, error);
    if (status != NORVO_SUCCESS) return status;
    // The decoder thread sets up its recognizer while we wait; its log lines go out from there.
    status = SpotterDecoder::start(*options, &mCallbacks, decoder, error);
    if (status != NORVO_SUCCESS) return status;
    status = mDecoders.insert(*decoder);
    if (status != NORVO_SUCCESS) {
        *error = "all " + std::to_string(DecoderTable::kSlots) + " decoder slots are in use";
    }
    return status;  // the caller stops a decoder that did not make it into the table
}

NorvoStatus PsEngine::refuseDecoder(const char* kind, const char* id) {
    mCallbacks.log(kLogWarning,
                   "decoder '%s' not created (status %d): %s decoders are not "
                   "implemented by this engine",
                   text(id).c_str(), NORVO_PS_UNSUPPORTED, kind);
    return NORVO_PS_UNSUPPORTED;
}

NorvoStatus PsEngine::deleteDecoder(const char* id) {
    std::shared_ptr<SpotterDecoder> decoder;
    {
        std::lock_guard<std::mutex> guard(mStructureLock);
        decoder = id == nullptr ? nullptr : mDecoders.remove(id);
    }
    if (decoder == nullptr) {
        mCallbacks.log(kLogWarning, "decoder '%s' not deleted (status %d): no such decoder",
                       text(id).c_str(), NORVO_PS_NOT_FOUND);
        return NORVO_PS_NOT_FOUND;
    }
    // Outside the lock: the thread may be inside a callback that calls the engine.
    decoder->stop();
    mCallbacks.log(kLogInfo, "decoder '%s' deleted", id);
    return NORVO_SUCCESS;
}

NorvoDecoderThreadIdResult PsEngine::decoderThreadId(const char* id) {
    std::shared_ptr<SpotterDecoder> decoder = id == nullptr ? nullptr : mDecoders.find(id);
    if (decoder == nullptr) return NorvoDecoderThreadIdResult{NORVO_PS_NOT_FOUND, 0};
    return NorvoDecoderThreadIdResult{NORVO_SUCCESS, decoder->threadId()};
}

NorvoStatus PsEngine::pushAudio(const char* id, const NorvoAudioEvent* event) {
    // Audio thread: no lock, no allocation, no log line (the decoder thread reports overflows).
    if (id == nullptr) return NORVO_PS_INVALID_ARGUMENT;
    return mDecoders.withDecoder(id,
                                 [event](SpotterDecoder& decoder) { return decoder.push(event); });
}

NorvoStatus PsEngine::pushClientEvents(const char* id, const NorvoClientEventBatch* batch,
                                       uint32_t count) {
    if (id == nullptr || (count > 0 && batch == nullptr)) return NORVO_PS_INVALID_ARGUMENT;
    for (uint32_t b = 0; b < count; ++b) {
        if (batch[b].count > 0 && batch[b].events == nullptr) return NORVO_PS_INVALID_ARGUMENT;
        for (uint32_t e = 0; e < batch[b].count; ++e) {
            if (batch[b].events[e].name == nullptr) return NORVO_PS_INVALID_ARGUMENT;
        }
    }
    for (uint32_t b = 0; b < count; ++b) {
        for (uint32_t e = 0; e < batch[b].count; ++e) {
            const NorvoClientEvent& event = batch[b].events[e];
            {
                std::lock_guard<std::mutex> guard(mSettingsLock);
                mClientEvents[id][event.name] = event.value;
            }
            mCallbacks.log(kLogDebug, "decoder '%s': client event %s = %lld kept", id, event.name,
                           static_cast<long long>(event.value));
        }
    }
    return NORVO_SUCCESS;
}

NorvoStatus PsEngine::sessionEnd(const char* id) {
    std::shared_ptr<SpotterDecoder> decoder = id == nullptr ? nullptr : mDecoders.find(id);
    if (decoder == nullptr) return NORVO_PS_NOT_FOUND;
    decoder->endSession();
    return NORVO_SUCCESS;
}

NorvoStatus PsEngine::refuseDecoderOperation(const char* operation, const char* id) {
    if (id == nullptr || !mDecoders.contains(id)) return NORVO_PS_NOT_FOUND;
    mCallbacks.log(kLogWarning, "decoder '%s': %s is not implemented by this engine (status %d)",
                   id, operation, NORVO_PS_UNSUPPORTED);
    return NORVO_PS_UNSUPPORTED;
}

NorvoStatus PsEngine::refuseModelSetOperation(const char* operation, const char* id) {
    {
        std::lock_guard<std::mutex> guard(mStructureLock);
        if (id == nullptr || mModelSets.count(id) == 0) return NORVO_PS_NOT_FOUND;
    }
    mCallbacks.log(kLogWarning, "model set '%s': %s is not implemented by this engine (status %d)",
                   id, operation, NORVO_PS_UNSUPPORTED);
    return NORVO_PS_UNSUPPORTED;
}

NorvoStatus PsEngine::setLocalTimeOffset(int32_t offset) {
    std::lock_guard<std::mutex> guard(mSettingsLock);
    mLocalTimeOffset = offset;
    return NORVO_SUCCESS;
}

NorvoStatus PsEngine::setLookaheadMetadata(const char* json) {
    if (json == nullptr) return NORVO_PS_INVALID_ARGUMENT;
    std::lock_guard<std::mutex> guard(mSettingsLock);
    mLookaheadMetadata = json;
    return NORVO_SUCCESS;
}

bool PsEngine::waitUntilDecoded(const std::string& id, int timeoutMs) {
    std::shared_ptr<SpotterDecoder> decoder = mDecoders.find(id);
    return decoder != nullptr && decoder->waitUntilDecoded(timeoutMs);
}

bool PsEngine::decoderStats(const std::string& id, DecoderStats* out) {
    std::shared_ptr<SpotterDecoder> decoder = mDecoders.find(id);
    if (decoder == nullptr) return false;
    *out = decoder->stats();
    return true;
}

std::map<std::string, int64_t> PsEngine::clientEvents(const std::string& id) {
    std::lock_guard<std::mutex> guard(mSettingsLock);
    auto found = mClientEvents.find(id);
    return found == mClientEvents.end() ? std::map<std::string, int64_t>() : found->second;
}

std::string PsEngine::lookaheadMetadata() {
    std::lock_guard<std::mutex> guard(mSettingsLock);
    return mLookaheadMetadata;
}

int32_t PsEngine::localTimeOffset() {
    std::lock_guard<std::mutex> guard(mSettingsLock);
    return mLocalTimeOffset;
}

// ---- control interface --------------------------------------------------------------------------

bool waitUntilDecoded(const std::string& decoderId, int timeoutMs) {
    return PsEngine::instance().waitUntilDecoded(decoderId, timeoutMs);
}
bool decoderStats(const std::string& decoderId, DecoderStats* out) {
    return PsEngine::instance().decoderStats(decoderId, out);
}
std::map<std::string, int64_t> clientEvents(const std::string& decoderId) {
    return PsEngine::instance().clientEvents(decoderId);
}
std::string lookaheadMetadata() {
    return PsEngine::instance().lookaheadMetadata();
}
int32_t localTimeOffset() {
    return PsEngine::instance().localTimeOffset();
}

}  // namespace norvo_ps
