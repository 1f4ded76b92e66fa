// The process-wide engine behind the C API: model sets by id, decoders by id, callbacks, client
// events and the few settings the API hands it. One instance, never destroyed (decoder threads
// may outlive static destruction at exit).
//
// Threads: every operation may be called from any thread, concurrently. Creating and deleting
// model sets and decoders serialise on mStructureLock; audio pushes never take a lock (they go
// through DecoderTable::withDecoder). No callback is called on a thread that holds an engine lock,
// and a decoder is stopped (its thread joined) outside every engine lock, so a callback may call
// back into the engine.
#ifndef NORVO_PS_PS_ENGINE_H
#define NORVO_PS_PS_ENGINE_H

#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "CallbackRegistry.h"
#include "DecoderTable.h"
#include "ModelSet.h"

namespace norvo_ps {

class PsEngine {
  public:
    static PsEngine& instance();

    CallbackRegistry& callbacks() { return mCallbacks; }
    const char* attributes() const;

    NorvoStatus newModelSet(const char* id, const char* manifestPath, const char* options);
    NorvoStatus deleteModelSet(const char* id);
    // Calls cb once, on the calling thread, before returning 0.
    NorvoStatus modelSetAttributes(const char* id, ModelSetAttributesCallback cb, void* userData);

    NorvoStatus newSpotterDecoder(const char* id, const char* modelSetId, const char* keywordSet,
                                  const NorvoMultichannelAudioFormat& format,
                                  const char* configJson);
    // A decoder kind this engine does not implement: logs and returns NORVO_PS_UNSUPPORTED.
    NorvoStatus refuseDecoder(const char* kind, const char* id);
    // Waits for the decoder thread to finish (see SpotterDecoder::stop()).
    NorvoStatus deleteDecoder(const char* id);
    NorvoDecoderThreadIdResult decoderThreadId(const char* id);
    NorvoStatus pushAudio(const char* id, const NorvoAudioEvent* event);
    // Kept per decoder id, whether or not that decoder exists (yet): always 0 for a valid batch.
    NorvoStatus pushClientEvents(const char* id, const NorvoClientEventBatch* batch,
                                 uint32_t count);
    NorvoStatus sessionEnd(const char* id);
    // An operation on an existing decoder that this engine does not implement:
    // NORVO_PS_NOT_FOUND or NORVO_PS_UNSUPPORTED.
    NorvoStatus refuseDecoderOperation(const char* operation, const char* id);
    NorvoStatus refuseModelSetOperation(const char* operation, const char* id);

    NorvoStatus setLocalTimeOffset(int32_t offset);
    NorvoStatus setLookaheadMetadata(const char* json);

    // Control interface (NorvoPs.h).
    bool waitUntilDecoded(const std::string& id, int timeoutMs);
    bool decoderStats(const std::string& id, DecoderStats* out);
    std::map<std::string, int64_t> clientEvents(const std::string& id);
    std::string lookaheadMetadata();
    int32_t localTimeOffset();

  private:
    PsEngine();
    static void recognizerLog(int level, const char* message);
    NorvoStatus createDecoder_l(const char* id, const char* modelSetId, const char* keywordSet,
                                const NorvoMultichannelAudioFormat& format, const char* configJson,
                                SpotterDecoder::Options* options,
                                std::shared_ptr<SpotterDecoder>* decoder, std::string* error);

    CallbackRegistry mCallbacks;
    DecoderTable mDecoders;

    // Held across creation and deletion of model sets and decoders (never while joining a
    // decoder thread or calling a callback).
    std::mutex mStructureLock;
    std::map<std::string, std::shared_ptr<const ModelSet>> mModelSets;  // mStructureLock

    std::mutex mSettingsLock;
    std::map<std::string, std::map<std::string, int64_t>> mClientEvents;  // mSettingsLock
    std::string mLookaheadMetadata;                                       // mSettingsLock
    int32_t mLocalTimeOffset = 0;                                         // mSettingsLock
};

}  // namespace norvo_ps

#endif  // NORVO_PS_PS_ENGINE_H
