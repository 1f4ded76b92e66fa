// One spotter decoder: an audio queue, a thread of its own ("NorvoSpotter") and, on that thread, a
// KeywordSpotter for the keywords its configuration enabled. Results leave through the engine's
// callbacks on that thread: wake phrases through the enumerated-result callback, local commands
// through the local-command callback.
//
// Threads:
//   push()                    audio threads: copies into the queue and returns; never blocks or
//                             allocates (see AudioQueue).
//   endSession(), stop(), waitUntilDecoded(), stats(), threadId()   any thread.
//   the decoder thread        decodes, delivers results, logs queue overflows.
// Ordering: endSession() applies after all audio pushed before it has been decoded.
#ifndef NORVO_PS_SPOTTER_DECODER_H
#define NORVO_PS_SPOTTER_DECODER_H

#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AudioQueue.h"
#include "CallbackRegistry.h"
#include "KeywordSpotter.h"

namespace norvo_ps {

class SpotterDecoder : public std::enable_shared_from_this<SpotterDecoder> {
  public:
    // 16 s of audio in 16 ms cells; a push of fewer frames than a cell still takes a whole one.
    static constexpr size_t kQueueCells = 1024;

    struct Options {
        std::string id;
        std::shared_ptr<const ModelSet> modelSet;
        std::vector<size_t> keywords;  // indices into modelSet->keywords()
        uint32_t channels = 1;         // interleaved channels of pushed audio; channel 0 is decoded
        bool nearMiss = false;         // accepted; this engine reports accepted detections only
    };

    // Starts the decoder thread and sets up its recognizer there; returns once the decoder is
    // ready (0) or has failed (NORVO_PS_MODEL_LOAD_FAILED, *error set, nothing left running).
    static NorvoStatus start(Options options, CallbackRegistry* callbacks,
                             std::shared_ptr<SpotterDecoder>* out, std::string* error);
    ~SpotterDecoder();
    SpotterDecoder(const SpotterDecoder&) = delete;
    SpotterDecoder& operator=(const SpotterDecoder&) = delete;

    // Queues an audio event: 0, NORVO_PS_BAD_AUDIO_EVENT or NORVO_PS_QUEUE_FULL.
    NorvoStatus push(const NorvoAudioEvent* event);
    // Ends the detection session: what is buffered is decoded and reported, and the next audio
    // starts a fresh stream.
    void endSession();
    // Stops the thread, dropping audio not yet decoded. When it returns, no callback for this
    // decoder runs any more, except when called from this decoder's own thread (from inside one of
    // its callbacks): then the thread ends as soon as that callback returns.
    void stop();
    // See norvo_ps::waitUntilDecoded().
    bool waitUntilDecoded(int timeoutMs);
    DecoderStats stats() const;

    const std::string& id() const { return mOptions.id; }
    const std::string& modelSetId() const { return mOptions.modelSet->id(); }
    int threadId() const { return mThreadId.load(); }

  private:
    struct Command {
        uint64_t afterCells;  // apply once this many cells have been decoded
        bool endSession;
    };

    SpotterDecoder(Options options, CallbackRegistry* callbacks);
    void run(std::shared_ptr<SpotterDecoder> self,
             std::promise<std::pair<NorvoStatus, std::string>> ready);
    // Runs the commands whose audio has been decoded.
    void runCommands();
    // Hands mDetections to the callbacks and clears it.
    void deliver();
    void reportOverflow();
    void markDecoded(uint64_t cells, uint64_t commands);

    const Options mOptions;
    CallbackRegistry* const mCallbacks;
    AudioQueue mQueue;
    std::thread mThread;
    std::atomic<int> mThreadId{0};
    std::atomic<bool> mStopping{false};

    std::unique_ptr<KeywordSpotter> mSpotter;  // decoder thread only
    std::vector<Detection> mDetections;        // decoder thread only, reused
    uint64_t mReportedDrops = 0;               // decoder thread only

    std::mutex mCommandLock;
    std::deque<Command> mCommands;  // guarded by mCommandLock
    uint64_t mCommandsQueued = 0;   // guarded by mCommandLock

    mutable std::mutex mDecodedLock;
    std::condition_variable mDecodedChanged;
    uint64_t mDecodedCells = 0;  // guarded by mDecodedLock
    uint64_t mCommandsDone = 0;  // guarded by mDecodedLock

    std::atomic<uint64_t> mDecodedFrames{0};
    std::atomic<uint64_t> mDetectionCount{0};
    std::atomic<uint64_t> mRestarts{0};
    std::atomic<uint64_t> mDecodeCpuNs{0};
};

}  // namespace norvo_ps

#endif  // NORVO_PS_SPOTTER_DECODER_H
