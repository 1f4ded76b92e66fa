// State of the fake engine: recorded calls, scripted statuses and attributes, model sets,
// decoders with their threads, and registered callbacks. One process-wide instance.
#pragma once

#include <norvo_fake/FakeNorvo.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "DecoderThread.h"

namespace norvo_fake {

class FakeEngine {
  public:
    static FakeEngine& instance();

    // Records the call and returns true with *status set when a status is scripted for it.
    bool recordCall(const std::string& op, std::vector<std::string> args, NorvoStatus* status);

    template <typename T>
    NorvoStatus setCallback(const char* op, T Callbacks::*field, T cb) {
        NorvoStatus status = NORVO_SUCCESS;
        std::lock_guard<std::mutex> guard(mLock);
        if (recordCall_l(op, {fnText(cb)}, &status)) return status;
        mCallbacks.*field = cb;
        return NORVO_SUCCESS;
    }
    Callbacks callbacks();

    NorvoStatus newModelSet(const char* id, const char* manifestPath, const char* options);
    NorvoStatus deleteModelSet(const char* id);
    NorvoStatus getModelSetAttributes(const char* id, ModelSetAttributesCallback cb,
                                      void* userData);

    NorvoStatus newDecoder(const std::string& op, std::vector<std::string> args, DecoderInfo info,
                           const char* id);
    NorvoStatus deleteDecoder(const char* id);
    NorvoDecoderThreadIdResult decoderThreadId(const char* id);
    // Records op with args and, unless anyId, checks that the decoder named by args[0] exists.
    NorvoStatus decoderCall(const std::string& op, std::vector<std::string> args,
                            bool anyId = false);
    NorvoStatus pushAudio(const char* id, const NorvoAudioEvent* event);

    const char* libraryAttributes();

    // Control interface.
    void reset();
    std::vector<Call> calls();
    void forgetCalls();
    void setStatus(const std::string& op, const std::string& id, NorvoStatus status);
    void setStatusOnce(const std::string& op, const std::string& id, NorvoStatus status);
    void clearStatuses();
    void setModelSetAttributes(const std::string& id, const std::string& json);
    void setLibraryAttributes(const std::string& text);
    void setAudioPushesIgnored(bool ignored) { mIgnorePushes.store(ignored); }
    void setAudioPushesCountedOnly(bool counted);
    PushTally pushTally(const std::string& id);
    std::vector<int16_t> pushedSamples(const std::string& id);
    std::vector<std::string> pushedMetadata(const std::string& id);
    bool modelSet(const std::string& id, ModelSetInfo* out);
    bool decoder(const std::string& id, DecoderInfo* out);
    std::vector<std::string> decoderIds();
    bool runOnDecoderThread(const std::string& id, std::function<void()> fn, bool wait);
    void setBeforeDecoderDelete(std::function<void(const std::string&)> hook);
    void setBeforeAudioPush(std::function<void(const std::string&)> hook);
    void scriptKeyword(const std::string& decoderId, int16_t trigger, const std::string& keyword,
                       const std::vector<uint8_t>& blob);

  private:
    struct Decoder {
        DecoderInfo info;
        std::unique_ptr<DecoderThread> thread;
    };

    bool recordCall_l(const std::string& op, std::vector<std::string> args, NorvoStatus* status);

    std::mutex mLock;
    std::vector<Call> mCalls;                                              // guarded by mLock
    std::map<std::string, NorvoStatus> mOpStatus;                          // guarded by mLock
    std::map<std::pair<std::string, std::string>, NorvoStatus> mIdStatus;  // guarded by mLock
    std::map<std::pair<std::string, std::string>, NorvoStatus> mOnceStatus;  // guarded by mLock
    std::map<std::string, std::string> mAttributes;                        // guarded by mLock
    std::map<std::string, ModelSetInfo> mModelSets;                        // guarded by mLock
    std::map<std::string, std::shared_ptr<Decoder>> mDecoders;             // guarded by mLock
    Callbacks mCallbacks{};                                                // guarded by mLock
    bool mRecordPushes = true;                                             // guarded by mLock
    struct Tally {
        PushTally counts{};
        uint64_t nextIndex = 0;
    };
    std::map<std::string, Tally> mTallies;  // guarded by mLock
    std::function<void(const std::string&)> mBeforeDelete;                 // guarded by mLock
    std::function<void(const std::string&)> mBeforePush;                   // guarded by mLock
    std::map<std::string, std::vector<int16_t>> mPushedSamples;       // guarded by mLock
    std::map<std::string, std::vector<std::string>> mPushedMetadata;  // guarded by mLock
    std::atomic<bool> mIgnorePushes{false};
    struct ScriptedKeyword {
        int16_t trigger;
        std::string keyword;
        std::vector<uint8_t> blob;
    };
    std::map<std::string, ScriptedKeyword> mKeywords;  // guarded by mLock
    // Posts a detection of the scripted keyword at sampleIndex to the decoder's thread; mLock held.
    void detect_l(const std::string& decoderId, const ScriptedKeyword& keyword,
                  uint64_t sampleIndex);
    // Library attributes: every text ever handed out stays allocated, since callers keep the
    // pointer for the life of the process.
    std::vector<std::unique_ptr<std::string>> mLibraryAttributes;  // guarded by mLock
};

}  // namespace norvo_fake
