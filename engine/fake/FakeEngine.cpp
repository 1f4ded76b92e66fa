#include "FakeEngine.h"

#include <sys/resource.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

namespace norvo_fake {

const char* const kDefaultModelSetAttributes =
        "{\"model_attributes\":[{\"model_id\":\"norvo\",\"keyword\":{\"supported-keyword-list\":"
        "[\"STOP\",\"CANCEL\",\"SNOOZE\"]}}]}";
const char* const kDefaultLibraryAttributes = "{\"engine\":\"norvo-fake\",\"version\":\"1.0\"}";

std::string ptrText(const void* p) {
    if (p == nullptr) return "null";
    char text[32];
    snprintf(text, sizeof(text), "%p", p);
    return text;
}

FakeEngine& FakeEngine::instance() {
    static FakeEngine* engine =
            new FakeEngine();  // never destroyed: decoder threads may outlive exit
    return *engine;
}

bool FakeEngine::recordCall(const std::string& op, std::vector<std::string> args,
                            NorvoStatus* status) {
    std::lock_guard<std::mutex> guard(mLock);
    return recordCall_l(op, std::move(args), status);
}

bool FakeEngine::recordCall_l(const std::string& op, std::vector<std::string> args,
                              NorvoStatus* status) {
    auto once = args.empty() ? mOnceStatus.end() : mOnceStatus.find({op, args[0]});
    auto byId = args.empty() ? mIdStatus.end() : mIdStatus.find({op, args[0]});
    mCalls.push_back(Call{op, std::move(args)});
    if (once != mOnceStatus.end()) {
        *status = once->second;
        mOnceStatus.erase(once);
        return true;
    }
    if (byId != mIdStatus.end()) {
        *status = byId->second;
        return true;
    }
    auto byOp = mOpStatus.find(op);
    if (byOp != mOpStatus.end()) {
        *status = byOp->second;
        return true;
    }
    return false;
}

static std::string text(const char* s) {
    return s == nullptr ? "null" : s;
}

Callbacks FakeEngine::callbacks() {
    std::lock_guard<std::mutex> guard(mLock);
    return mCallbacks;
}

NorvoStatus FakeEngine::newModelSet(const char* id, const char* manifestPath, const char* options) {
    NorvoStatus status = NORVO_SUCCESS;
    std::lock_guard<std::mutex> guard(mLock);
    if (recordCall_l("NorvoModelSet_New", {text(id), text(manifestPath), text(options)}, &status)) {
        return status;
    }
    if (id == nullptr || manifestPath == nullptr) return kNotFound;
    if (mModelSets.count(id) != 0) return kAlreadyExists;
    mModelSets[id] = ModelSetInfo{manifestPath, text(options)};
    return NORVO_SUCCESS;
}

NorvoStatus FakeEngine::deleteModelSet(const char* id) {
    NorvoStatus status = NORVO_SUCCESS;
    std::lock_guard<std::mutex> guard(mLock);
    if (recordCall_l("NorvoModelSet_Delete", {text(id)}, &status)) return status;
    if (id == nullptr || mModelSets.count(id) == 0) return kNotFound;
    for (const auto& entry : mDecoders) {
        if (entry.second->info.modelSetId == id) return kInUse;
    }
    mModelSets.erase(id);
    return NORVO_SUCCESS;
}

NorvoStatus FakeEngine::getModelSetAttributes(const char* id, ModelSetAttributesCallback cb,
                                              void* userData) {
    NorvoStatus status = NORVO_SUCCESS;
    std::string attributes;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (recordCall_l("NorvoModelSet_GetModelSetAttributes", {text(id), fnText(cb)}, &status)) {
            return status;
        }
        if (id == nullptr || mModelSets.count(id) == 0) return kNotFound;
        auto scripted = mAttributes.find(id);
        attributes = scripted != mAttributes.end() ? scripted->second : kDefaultModelSetAttributes;
    }
    if (cb != nullptr) cb(attributes.c_str(), userData);
    return NORVO_SUCCESS;
}

NorvoStatus FakeEngine::newDecoder(const std::string& op, std::vector<std::string> args,
                                   DecoderInfo info, const char* id) {
    NorvoStatus status = NORVO_SUCCESS;
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (recordCall_l(op, std::move(args), &status)) return status;
        if (id == nullptr || mModelSets.count(info.modelSetId) == 0) return kNotFound;
        if (mDecoders.count(id) != 0) return kAlreadyExists;
    }
    // The thread is started outside the lock; a concurrent creation of the same id is settled
    // below, and the loser's thread is joined when its Decoder goes out of scope.
    auto decoder = std::make_shared<Decoder>();
    decoder->thread = std::make_unique<DecoderThread>();
    decoder->info = std::move(info);
    decoder->info.threadId = decoder->thread->threadId();
    std::lock_guard<std::mutex> guard(mLock);
    if (!mDecoders.emplace(id, decoder).second) return kAlreadyExists;
    return NORVO_SUCCESS;
}

NorvoStatus FakeEngine::deleteDecoder(const char* id) {
    NorvoStatus status = NORVO_SUCCESS;
    std::shared_ptr<Decoder> doomed;
    std::function<void(const std::string&)> hook;
    {
        std::lock_guard<std::mutex> guard(mLock);
        hook = mBeforeDelete;
    }
    if (hook && id != nullptr) hook(id);
    {
        std::lock_guard<std::mutex> guard(mLock);
        if (recordCall_l("NorvoDecoder_Delete", {text(id)}, &status)) return status;
        auto found = id == nullptr ? mDecoders.end() : mDecoders.find(id);
        if (found == mDecoders.end()) return kNotFound;
        doomed = std::move(found->second);
        mDecoders.erase(found);
    }
    return NORVO_SUCCESS;  // doomed's thread finishes its queue and is joined here, unlocked
}

NorvoDecoderThreadIdResult FakeEngine::decoderThreadId(const char* id) {
    NorvoStatus status = NORVO_SUCCESS;
    std::lock_guard<std::mutex> guard(mLock);
    if (recordCall_l("NorvoDecoder_GetDecoderThreadId", {text(id)}, &status)) {
        return NorvoDecoderThreadIdResult{status, 0};
    }
    auto found = id == nullptr ? mDecoders.end() : mDecoders.find(id);
    if (found == mDecoders.end()) return NorvoDecoderThreadIdResult{kNotFound, 0};
    return NorvoDecoderThreadIdResult{NORVO_SUCCESS, found->second->info.threadId};
}

NorvoStatus FakeEngine::decoderCall(const std::string& op, std::vector<std::string> args,
                                    bool anyId) {
    NorvoStatus status = NORVO_SUCCESS;
    std::lock_guard<std::mutex> guard(mLock);
    std::string id = args.empty() ? "null" : args[0];
    if (recordCall_l(op, std::move(args), &status)) return status;
    return anyId || mDecoders.count(id) != 0 ? NORVO_SUCCESS : kNotFound;
}

NorvoStatus FakeEngine::pushAudio(const char* id, const NorvoAudioEvent* event) {
    if (mIgnorePushes.load(std::memory_order_relaxed)) return NORVO_SUCCESS;
    std::function<void(const std::string&)> hook;
    {
        std::lock_guard<std::mutex> guard(mLock);
        hook = mBeforePush;
    }
    if (hook && id != nullptr) hook(id);
    NorvoStatus status = NORVO_SUCCESS;
    std::lock_guard<std::mutex> guard(mLock);
    if (mRecordPushes) {
        std::vector<std::string> args{text(id)};
        if (event != nullptr) {
            args.push_back(text(event->type));
            args.push_back(text(event->metadata));
        }
        if (recordCall_l("NorvoDecoder_PushAudioEvent", std::move(args), &status)) return status;
    }
    // Counted pushes are tallied whether or not the decoder exists: a push racing the decoder's
    // deletion was still made, and its buffer still counted by the client.
    if (!mRecordPushes && id != nullptr && event != nullptr && event->metadata != nullptr) {
        unsigned int count = 0;
        unsigned long long first = 0;
        sscanf(event->metadata, "{ \"sample_count\":%u, \"first_sample_index\":%llu }", &count,
               &first);
        Tally& tally = mTallies[id];
        if (tally.counts.events != 0 && first != tally.nextIndex) ++tally.counts.discontinuities;
        ++tally.counts.events;
        tally.counts.samples += count;
        // The index counts frames; interleaved channels put several samples in one frame.
        auto decoder = mDecoders.find(id);
        const uint32_t channels =
                decoder == mDecoders.end()
                        ? 1
                        : decoder->second->info.format.words[NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT];
        tally.nextIndex = first + count / (channels == 0 ? 1 : channels);
        return decoder == mDecoders.end() ? kNotFound : NORVO_SUCCESS;
    }
    if (id == nullptr || mDecoders.count(id) == 0) return kNotFound;
    if (mRecordPushes && event != nullptr && event->metadata != nullptr) {
        // The engine learns the event's size from its metadata, as a real one does.
        unsigned int count = 0;
        const char* field = strstr(event->metadata, "\"sample_count\":");
        if (field != nullptr) sscanf(field, "\"sample_count\":%u", &count);
        const int16_t* samples = static_cast<const int16_t*>(event->samples);
        if (samples != nullptr) {
            mPushedSamples[id].insert(mPushedSamples[id].end(), samples, samples + count);
        }
        mPushedMetadata[id].push_back(event->metadata);
        auto scripted = mKeywords.find(id);
        if (scripted != mKeywords.end() && samples != nullptr) {
            unsigned long long first = 0;
            const char* index = strstr(event->metadata, "\"first_sample_index\":");
            if (index != nullptr) sscanf(index, "\"first_sample_index\":%llu", &first);
            for (unsigned int i = 0; i < count; ++i) {
                if (samples[i] == scripted->second.trigger) detect_l(id, scripted->second, first + i);
            }
        }
    }
    return NORVO_SUCCESS;
}

void FakeEngine::detect_l(const std::string& decoderId, const ScriptedKeyword& keyword,
                          uint64_t sampleIndex) {
    auto decoder = mDecoders.find(decoderId);
    if (decoder == mDecoders.end()) return;
    // The record and its texts live until the callback returns, as the engine promises.
    auto shared = std::make_shared<ScriptedKeyword>(keyword);
    std::string id = decoderId;
    decoder->second->thread->post([this, shared, id, sampleIndex] {
        EnumeratedResult_Callback callback = callbacks().enumeratedResult;
        if (callback == nullptr) return;
        NorvoEnumeratedResult result{};
        result.beginSampleIndex = static_cast<int64_t>(sampleIndex);
        result.endSampleIndex = static_cast<int64_t>(sampleIndex);
        result.keyword = shared->keyword.c_str();
        result.detailText = "";
        result.detectionType = 0;
        result.blob.size = static_cast<uint32_t>(shared->blob.size());
        result.blob.data = shared->blob.data();
        callback(id.c_str(), &result);
    });
}

void FakeEngine::scriptKeyword(const std::string& decoderId, int16_t trigger,
                               const std::string& keyword, const std::vector<uint8_t>& blob) {
    std::lock_guard<std::mutex> guard(mLock);
    mKeywords[decoderId] = ScriptedKeyword{trigger, keyword, blob};
}

void FakeEngine::setAudioPushesCountedOnly(bool counted) {
    std::lock_guard<std::mutex> guard(mLock);
    mRecordPushes = !counted;
}

PushTally FakeEngine::pushTally(const std::string& id) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mTallies.find(id);
    return found == mTallies.end() ? PushTally{} : found->second.counts;
}

std::vector<int16_t> FakeEngine::pushedSamples(const std::string& id) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mPushedSamples.find(id);
    return found == mPushedSamples.end() ? std::vector<int16_t>() : found->second;
}

std::vector<std::string> FakeEngine::pushedMetadata(const std::string& id) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mPushedMetadata.find(id);
    return found == mPushedMetadata.end() ? std::vector<std::string>() : found->second;
}

const char* FakeEngine::libraryAttributes() {
    std::lock_guard<std::mutex> guard(mLock);
    mCalls.push_back(Call{"NorvoApi_GetAttributes", {}});
    if (mLibraryAttributes.empty()) {
        mLibraryAttributes.push_back(std::make_unique<std::string>(kDefaultLibraryAttributes));
    }
    return mLibraryAttributes.back()->c_str();
}

void FakeEngine::reset() {
    std::map<std::string, std::shared_ptr<Decoder>> doomed;
    {
        std::lock_guard<std::mutex> guard(mLock);
        doomed.swap(mDecoders);
        mCalls.clear();
        mOpStatus.clear();
        mIdStatus.clear();
        mOnceStatus.clear();
        mAttributes.clear();
        mModelSets.clear();
        mCallbacks = Callbacks{};
        mRecordPushes = true;
        mTallies.clear();
        mBeforeDelete = nullptr;
        mBeforePush = nullptr;
        mPushedSamples.clear();
        mPushedMetadata.clear();
        mKeywords.clear();
        mIgnorePushes.store(false);
        if (!mLibraryAttributes.empty()) {
            // Keep earlier texts alive (callers may still hold them), but serve the default again.
            mLibraryAttributes.push_back(std::make_unique<std::string>(kDefaultLibraryAttributes));
        }
    }
}

std::vector<Call> FakeEngine::calls() {
    std::lock_guard<std::mutex> guard(mLock);
    return mCalls;
}

void FakeEngine::forgetCalls() {
    std::lock_guard<std::mutex> guard(mLock);
    mCalls.clear();
    mCalls.shrink_to_fit();
}

void FakeEngine::setStatus(const std::string& op, const std::string& id, NorvoStatus status) {
    std::lock_guard<std::mutex> guard(mLock);
    if (id.empty()) {
        mOpStatus[op] = status;
    } else {
        mIdStatus[{op, id}] = status;
    }
}

void FakeEngine::setStatusOnce(const std::string& op, const std::string& id, NorvoStatus status) {
    std::lock_guard<std::mutex> guard(mLock);
    mOnceStatus[{op, id}] = status;
}

void FakeEngine::clearStatuses() {
    std::lock_guard<std::mutex> guard(mLock);
    mOpStatus.clear();
    mIdStatus.clear();
    mOnceStatus.clear();
}

void FakeEngine::setModelSetAttributes(const std::string& id, const std::string& json) {
    std::lock_guard<std::mutex> guard(mLock);
    mAttributes[id] = json;
}

void FakeEngine::setLibraryAttributes(const std::string& text) {
    std::lock_guard<std::mutex> guard(mLock);
    mLibraryAttributes.push_back(std::make_unique<std::string>(text));
}

void FakeEngine::setBeforeDecoderDelete(std::function<void(const std::string&)> hook) {
    std::lock_guard<std::mutex> guard(mLock);
    mBeforeDelete = std::move(hook);
}

void FakeEngine::setBeforeAudioPush(std::function<void(const std::string&)> hook) {
    std::lock_guard<std::mutex> guard(mLock);
    mBeforePush = std::move(hook);
}

bool FakeEngine::modelSet(const std::string& id, ModelSetInfo* out) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mModelSets.find(id);
    if (found == mModelSets.end()) return false;
    if (out != nullptr) *out = found->second;
    return true;
}

bool FakeEngine::decoder(const std::string& id, DecoderInfo* out) {
    std::lock_guard<std::mutex> guard(mLock);
    auto found = mDecoders.find(id);
    if (found == mDecoders.end()) return false;
    if (out != nullptr) *out = found->second->info;
    return true;
}

std::vector<std::string> FakeEngine::decoderIds() {
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<std::string> ids;
    for (const auto& entry : mDecoders) ids.push_back(entry.first);
    return ids;
}

bool FakeEngine::runOnDecoderThread(const std::string& id, std::function<void()> fn, bool wait) {
    std::shared_ptr<Decoder> decoder;
    {
        std::lock_guard<std::mutex> guard(mLock);
        auto found = mDecoders.find(id);
        if (found == mDecoders.end()) return false;
        decoder = found->second;
    }
    if (wait) {
        decoder->thread->runAndWait(std::move(fn));
    } else {
        decoder->thread->post(std::move(fn));
    }
    return true;
}

// ---- control interface -------------------------------------------------------------------------

void reset() {
    FakeEngine::instance().reset();
}
std::vector<Call> calls() {
    return FakeEngine::instance().calls();
}

void forgetCalls() {
    FakeEngine::instance().forgetCalls();
}

std::vector<Call> callsOf(const std::string& op) {
    std::vector<Call> matching;
    for (Call& call : calls()) {
        if (call.op == op) matching.push_back(std::move(call));
    }
    return matching;
}

std::vector<std::string> callNames() {
    std::vector<std::string> names;
    for (const Call& call : calls()) names.push_back(call.op);
    return names;
}

void setStatus(const std::string& op, NorvoStatus status) {
    FakeEngine::instance().setStatus(op, "", status);
}
void setStatus(const std::string& op, const std::string& id, NorvoStatus status) {
    FakeEngine::instance().setStatus(op, id, status);
}
void setStatusOnce(const std::string& op, const std::string& id, NorvoStatus status) {
    FakeEngine::instance().setStatusOnce(op, id, status);
}
void clearStatuses() {
    FakeEngine::instance().clearStatuses();
}
void setModelSetAttributes(const std::string& modelSetId, const std::string& json) {
    FakeEngine::instance().setModelSetAttributes(modelSetId, json);
}
void setLibraryAttributes(const std::string& text) {
    FakeEngine::instance().setLibraryAttributes(text);
}
bool modelSet(const std::string& id, ModelSetInfo* out) {
    return FakeEngine::instance().modelSet(id, out);
}
bool decoder(const std::string& id, DecoderInfo* out) {
    return FakeEngine::instance().decoder(id, out);
}
std::vector<std::string> decoderIds() {
    return FakeEngine::instance().decoderIds();
}
Callbacks callbacks() {
    return FakeEngine::instance().callbacks();
}

bool runOnDecoderThread(const std::string& decoderId, std::function<void()> fn, bool wait) {
    return FakeEngine::instance().runOnDecoderThread(decoderId, std::move(fn), wait);
}

int decoderThreadNice(const std::string& decoderId) {
    int nice = INT32_MIN;
    bool found = runOnDecoderThread(decoderId, [&nice] {
        errno = 0;
        int value = getpriority(PRIO_PROCESS, 0);  // 0: the calling thread on Linux
        nice = errno == 0 ? value : INT32_MIN;
    });
    return found ? nice : INT32_MIN;
}

void setAudioPushesIgnored(bool ignored) { FakeEngine::instance().setAudioPushesIgnored(ignored); }
void setAudioPushesCountedOnly(bool counted) {
    FakeEngine::instance().setAudioPushesCountedOnly(counted);
}
PushTally pushTally(const std::string& decoderId) {
    return FakeEngine::instance().pushTally(decoderId);
}
std::vector<int16_t> pushedSamples(const std::string& decoderId) {
    return FakeEngine::instance().pushedSamples(decoderId);
}
std::vector<std::string> pushedMetadata(const std::string& decoderId) {
    return FakeEngine::instance().pushedMetadata(decoderId);
}
void scriptKeyword(const std::string& decoderId, int16_t trigger, const std::string& keyword,
                   const std::vector<uint8_t>& blob) {
    FakeEngine::instance().scriptKeyword(decoderId, trigger, keyword, blob);
}

void setBeforeDecoderDelete(std::function<void(const std::string&)> hook) {
    FakeEngine::instance().setBeforeDecoderDelete(std::move(hook));
}

void setBeforeAudioPush(std::function<void(const std::string&)> hook) {
    FakeEngine::instance().setBeforeAudioPush(std::move(hook));
}

void emitLog(int level, const std::string& message) {
    NorvoLoggingCallback cb = callbacks().logging;
    if (cb != nullptr) cb(level, "norvo", message.c_str());
}

}  // namespace norvo_fake
