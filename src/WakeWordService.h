/*
 * velmar::WakeWordService: the one object that hosts the keyword-spotting engine for the process.
 *
 * The Java bridge constructs exactly one instance and holds it in an android::sp. Taking the first
 * strong reference runs initialize() synchronously (onFirstRef); the result is kept in
 * mInitStatus, and operations that need an initialised engine refuse with their own
 * "<operation>: WakeWordService not initialized." message while it is non-zero. When the last
 * strong reference goes, the destructor runs destroy().
 *
 * Statuses: every operation returns an android::status_t: 0 on success, an engine status unchanged
 * where an engine call failed (1 is NORVO_ERROR_FATAL), INVALID_OPERATION (-38) when the current
 * state does not allow the operation, BAD_VALUE (-22) for bad arguments.
 *
 * Threads: control operations run on Java caller threads; audio arrives on the platform's capture
 * threads and the injector thread; results arrive on engine threads and go straight to the
 * callbacks given to the constructor. Readiness flags, feature switches and frame counters are
 * plain fields written by one side and read by the other without a lock. The five mutexes below
 * are never nested.
 */
#ifndef VELMAR_WAKE_WORD_SERVICE_H
#define VELMAR_WAKE_WORD_SERVICE_H

#include <audiostream/AudioStream.h>
#include <norvo/NorvoApi.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/String16.h>
#include <utils/String8.h>
#include <utils/StrongPointer.h>
#include <utils/Vector.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "AspEventMonitor.h"
#include "AudioRecordInput.h"
#include "PlaybackStatusNotifier.h"
#include "WakeWordInjector.h"

namespace velmar {

// Channel count of the captured input: 3 with three-channel input, else 2 with a one-mic stream,
// else 1. Written by the constructor, read by capture set-up and the input paths; a second service
// instance would overwrite it.
extern uint32_t gChannelCount;
// Read from "persist.wakeword.testmode" when the library loads: microphone audio is replaced by
// silence (injected audio is not).
extern bool gTestMode;

// CLOCK_MONOTONIC in nanoseconds.
int64_t getTimeNs();
// Wall-clock time in milliseconds (gettimeofday).
long system_currentTimeMillis();

class WakeWordService : public android::RefBase {
  public:
    // Largest buffer, in frames, the audio callbacks accept.
    static constexpr size_t kMaxFramesPerBuffer = 240000;
    // Processes one buffer of frameCount frames from a capture source.
    typedef android::status_t (*ProcessAudio)(WakeWordService* service, void* buffer,
                                              size_t frameCount);

    // Called by the service itself when it starts (true) or stops (false) the matching decoder.
    typedef void (*AedStaticDecoderStatus_Callback)(bool started);
    typedef void (*AedCustomDecoderStatus_Callback)(bool started);
    typedef void (*NttDecoderStatus_Callback)(bool started);
    typedef void (*PmaDecoderStatus_Callback)(bool started);
    // Registered with the engine for its two metrics channels.
    typedef void (*RecordMetrics_Callback)(NorvoDMSMetricData* data);
    typedef void (*RecordQuillanMetrics_Callback)(NorvoDMSQuillanMetricData* data);

    // Stores the configuration; starts nothing and makes no engine call. audioStream must not be
    // null. The path and wake-word pointers are kept as given (not copied) and are read only until
    // initialize() returns; the callbacks are handed to the engine unchanged.
    WakeWordService(
            const char* opPackageName, EnumeratedResult_Callback enumeratedResultCallback,
            AcousticEventDetectionResult_Callback acousticEventDetectionResultCallback,
            LocalCommandEnumeratedResult_Callback localCommandEnumeratedResultCallback,
            NttResult_Callback nttResultCallback, NttEndOfSpeech_Callback nttEndOfSpeechCallback,
            Jsondata_Callback jsondataCallback,
            AedStaticDecoderStatus_Callback aedStaticDecoderStatusCallback,
            AedCustomDecoderStatus_Callback aedCustomDecoderStatusCallback,
            NttDecoderStatus_Callback nttDecoderStatusCallback,
            PmaDecoderStatus_Callback pmaDecoderStatusCallback,
            RecordMetrics_Callback recordMetricsCallback,
            RecordQuillanMetrics_Callback recordQuillanMetricsCallback,
            NorvoFederatedLearning_resultCallback federatedLearningResultCallback,
            NorvoFederatedLearning_unsecuredResultCallback federatedLearningUnsecuredResultCallback,
            NorvoFederatedLearning_idleDetectionCallback federatedLearningIdleDetectionCallback,
            const android::sp<AudioStream>& audioStream,
            const android::sp<AudioStream>& oneMicAudioStream, const char* norvoModelManifestPath,
            const char* aedStaticModelManifestPath, const char* nttModelPath,
            const char* pmaModelPath, const char* aedCustomModelPath, const char** wakeWords,
            int wakeWordCount, bool playbackViaAudioRecord, bool suppressPlaybackAtInit,
            bool aedAvailable, bool nearMissEnabled, bool threeChannelInput, bool nttEnabled,
            bool preloadNttModel, bool oneMicEnabled, int decoderThreadPriority,
            int audioRecordFrameCount, int32_t localTimeOffset, int ttsStreamType);
    // Runs destroy(), then releases the members.
    ~WakeWordService() override;

    // ---- Lifecycle (WakeWordService.cpp) ----
    // mInitStatus = initialize(), on the thread taking the first strong reference.
    void onFirstRef() override;
    // Capture set-up, engine setup, the mirror writers, then the playback detector. The first
    // failure runs destroy() and is returned; a playback-detector failure is only logged.
    android::status_t initialize();
    // Stops capture, deletes decoders and model sets, removes engine callbacks, stops the ASP
    // monitor. Safe to call more than once; engine failures are logged and teardown goes on.
    void destroy();
    // No effect; the bridge calls it before dropping its reference.
    void release();
    // Writes "Audio frames read: N\n" to fd. Always 0.
    android::status_t dump(int fd, const android::Vector<android::String16>& args);

    // ---- Engine setup (WakeWordServiceEngine.cpp) ----
    // Registers the engine callbacks, hands over the time offset and device description, builds
    // the wake-word model, starts the ASP monitor, NTT and AED. Registration failures return the
    // engine status; a model failure other than NORVO_ERROR_FATAL does not fail setup.
    android::status_t initializeNorvo();
    // Engine log sink: re-logs message under this service's tag at the matching priority.
    static void norvoLoggingCallback(int level, const char* component, const char* message);
    // Engine metrics sink: logs the metrics text.
    static void norvoMetricsCallback(const char* component, const char* metrics);
    // Device description JSON from five build properties (missing ones become "").
    static void norvoGetDeviceInfoJson(char* buffer, size_t size);
    // { "sample_count":N, "first_sample_index":I } into buffer.
    static void norvoGetSampleEventJson(char* buffer, unsigned int size, unsigned int sampleCount,
                                        unsigned long long firstSampleIndex);
    // Renices the decoder's engine thread. INVALID_OPERATION when the engine does not know the
    // decoder, else the negated errno of setpriority (0 on success).
    static android::status_t setNorvoDecoderThreadPriority(NorvoDecoderId decoderId, int priority);

    // ---- Wake-word model (WakeWordServiceModel.cpp) ----
    // Loads the model set and creates the input (and, with playback capture, the playback) keyword
    // decoder. Engine failures return the engine status; unusable model attributes return 0 and
    // leave the service without keyword decoders.
    android::status_t setNewNorvoModel(const char* manifestPath, const char** wakeWords,
                                       int wakeWordCount);
    // Stops capture, replaces the model, reconciles the separate NTT decoder, restarts capture if
    // it was running. No rollback on failure.
    android::status_t switchNorvoModel(const char* manifestPath, const char** wakeWords,
                                       int wakeWordCount);
    // Deletes both keyword decoders (readiness flags cleared first) and the model set.
    void destroyNorvoModel();
    // Fetches a model set's attributes JSON into attributes; the engine status is returned.
    android::status_t getModelSetAttributes(const char* modelSetId, android::String8& attributes);
    // True when an element of "model_attributes" has a member "ntt".
    static bool getNttSupportedFromModel(const std::string& attributes);

    // ---- Detection control (WakeWordServiceControl.cpp) ----
    // Starts or stops the capture input. Unchanged state returns 0 without touching the input; a
    // failing start leaves detection off and returns its status.
    android::status_t setDetectorEnabled(bool enabled);
    android::status_t getDetectorEnabled(bool* const enabled);
    // Lets input audio reach the keyword decoders or not; disabling ends both decoders' sessions.
    // Serialised by mWWDetectionLock.
    android::status_t setWWDetectionEnabled(const bool enabled);
    // Accepted and ignored.
    android::status_t setWWDetectionEnabledForLpm(bool enabled, int value);
    // Client event to the input decoder, then to "wws_ntt" when it exists and the first succeeded.
    android::status_t setNorvoProperty(const char* name, int64_t value);
    // Client event to the AED decoder.
    android::status_t setNorvoAcousticProperty(const char* name, int64_t value);
    android::status_t setFingerprintDatabase(const char* database);
    // attributes: the engine's description (engine-owned, never freed), or null when refused.
    android::status_t getNorvoLibraryAttributes(const char*& attributes);
    // Pushes one client event to one decoder (the input decoder by default); no init check.
    android::status_t pushClientEventToNorvo(const char* name, int64_t value,
                                             const NorvoString decoderId);
    android::status_t pushClientEventToNorvo(const char* name, int64_t value);
    // ASP monitor reports: forwarded to the input decoder and, when it exists, "wws_ntt".
    static void AspEventCallback(void* userData, const char* event, int64_t value);

    // ---- Input path (WakeWordServiceInput.cpp) ----
    // Creates the capture input (microphone adapter, playback adapter when configured) and the
    // injector; starts nothing. getMinFrameCount's status when the frame count must be asked for;
    // BAD_VALUE for a frame count below -1.
    android::status_t initializeAudioRecordAndInjector();
    // AudioRecord callback of the microphone adapter (user: the service). Real-time safe.
    static void audioRecordCallbackFn(int event, void* user, void* info);
    // Shared body of the AudioRecord callbacks: overrun warning, 1..240000 frame bound, process.
    static void audioRecordCallbackHandler(int event, void* user, void* info, ProcessAudio process,
                                           const char* sourceName);
    // Microphone buffer: ignored while injecting, zeroed in test mode, then processed.
    static android::status_t processAudioFromInput(WakeWordService* service, void* buffer,
                                                   size_t frameCount);
    // Mirror, detect, count. 0 (buffer dropped, not counted) while the input decoder is not
    // ready; BAD_VALUE without a main writer (not counted) or when a decoder push failed (counted).
    // For callers off the microphone path (injection, backfill): with a one-mic split it allocates
    // its own channel buffers (NO_MEMORY when it cannot).
    android::status_t processAudioDataFromInput(void* buffer, size_t frameCount);
    // Two-channel one-mic variant: channel 1 to the one-mic writer, channel 0 to the main writer
    // and to detection. Allocates its channel buffers, as above.
    android::status_t processInterleavedAudioDataFromInput(void* buffer, size_t frameCount);
    // Input decoder, then AED, then NTT, each when enabled; the last enabled step's status.
    android::status_t passAudioForDetection(void* buffer, size_t sampleCount);
    // Pushes one "samples" event to decoderId. The engine status; NORVO_ERROR_FATAL ends the
    // process.
    android::status_t detectAudioData(void* buffer, size_t sampleCount, uint64_t firstSampleIndex,
                                      const char* decoderId);
    android::status_t detectAudioDataFromAudioInput(void* buffer, size_t sampleCount,
                                                    uint64_t firstSampleIndex);
    static bool isInputDecoderId(const char* decoderId);
    // Injector blocks (mono): playback blocks to the playback path, input blocks duplicated into
    // every input channel.
    static void injectorCallbackFn(void* user, int16_t* samples, size_t frameCount,
                                   bool toPlayback);
    // NO_INIT without an injector, else the injector's status.
    android::status_t injectWaveFile(const char* path, bool toPlayback);
    // Restarts capture when it is enabled; 0 (with a warning) when it is not.
    android::status_t resetAudioInput();

    // ---- Mirror writers (WakeWordServiceStreams.cpp) ----
    // Open mAudioStreamWriter / mOneMicAudioStreamWriter. INVALID_OPERATION without the stream,
    // else the stream's openWriter status.
    android::status_t startAudioStream();
    android::status_t startOneMicAudioStream();
    // Close and release the writer; INVALID_OPERATION when none is open, else the close status.
    android::status_t stopAudioStream();
    android::status_t stopOneMicAudioStream();

    // ---- Frame accounting (WakeWordServiceFrames.cpp) ----
    // Six INFO lines with the guard words and both frame counters.
    void logFrameCountBoundaries();
    // The counters, read without a lock. Always 0.
    android::status_t getInputFrameCount(int64_t& frameCount);
    android::status_t getPlaybackFrameCount(int64_t& frameCount);
    // Monotonic time (ms) of the newest captured input frame: the microphone recording's kernel
    // time, else its server time, else now. Always 0.
    android::status_t getInputFrameTime(int64_t& timeMs);
    // When a backfill is pending, runs the last mBackfillDurationMs of mirrored input through the
    // input path again. Single entry (a concurrent call returns 0 at once).
    android::status_t backfillAudioIfNeeded();

    // ---- Playback path (WakeWordServicePlayback.cpp) ----
    // Creates and starts the playback status notifier unless it exists. Always 0.
    android::status_t enablePlaybackDetector();
    // Stops and releases the notifier. Teardown only (takes no lock).
    void playbackDestroy();
    // AudioRecord callback of the playback adapter (user: the service). Real-time safe.
    static void playbackAudioRecordCallbackFn(int event, void* user, void* info);
    // Live playback buffer: ignored while a file is injected, otherwise processed.
    static android::status_t processAudioFromPlayback(WakeWordService* service, void* buffer,
                                                      size_t frameCount);
    // Entry for a playback stream reader (AudioStreamReaderThread's callback type); bytePosition
    // is not used. Real-time safe.
    static void playbackAudioCallbackFn(void* user, int16_t* samples, size_t frameCount,
                                        uint32_t bytePosition);
    // Push (playback decoder, then PMA) and count. 0 without the playback decoder (buffer neither
    // pushed nor counted); counted but not pushed while pushing is off; otherwise the PMA push's
    // status. position is not read.
    android::status_t processAudioDataFromPlayback(void* buffer, size_t frameCount,
                                                   uint32_t position);
    android::status_t detectAudioDataFromPlayback(void* buffer, size_t sampleCount,
                                                  uint64_t firstSampleIndex);
    // Switches pushing playback audio to the playback detector; returns the previous setting.
    // Unchanged (with an error) on a service whose initialisation failed.
    bool setPushDataToPlaybackDetectorEnabled(bool enabled);
    // The notifier's callback (user: the service); runs under the notifier's state lock.
    static void playbackNotifierCallbackFn(void* user, bool active, int streamType);
    // Music, text-to-speech or alarm state as a client event for the input decoder, then for
    // "wws_ntt" when it exists. 0 for other stream types.
    android::status_t processPlaybackNotifierCallback(bool active, int streamType);
    // Tells the playback notifier whether text-to-speech plays. 22 (positive) without a notifier.
    android::status_t notifyTtsState(bool isPlaying);

    // ---- Audio event detection (WakeWordServiceAed.cpp) ----
    // Rebuilds the AED model set (static manifest, then the custom sounds configuration) and, when
    // enabled, a new decoder (multichannel with three-channel input, else 16-bit PCM), switching
    // detection off first and on again after. BAD_VALUE without a static manifest (nothing is
    // touched); an engine failure returns its status with detection off.
    android::status_t setAudioEventDetectionMode(bool enabled);
    // Tells the AED decoder (client event) and the input path whether detection is on. 0 when the
    // state is unchanged; mInitStatus on a failed service.
    android::status_t notifyAedModeChange(bool enabled);
    // Pushes input audio to the AED decoder.
    android::status_t detectAudioPresenceData(void* buffer, size_t sampleCount,
                                              uint64_t firstSampleIndex);
    // New static manifest (drops the custom configuration), then a rebuild in the current mode.
    android::status_t setAedStaticModel(const char* manifestPath);
    // New custom sounds configuration (null or empty: none), then a rebuild in the current mode.
    android::status_t setAedCustomModel(const char* customModelPath);
    // json: constant "{}" text (static storage), or untouched on a failed service.
    android::status_t getAudioPresenceData(const char*& json);
    // Reports the custom model gone (status callback false).
    void destroyAedCustomModel();
    // Deletes the decoder and/or the model set when they exist; always reports the static decoder
    // stopped.
    void destroyAedDecoderAndStaticModel(bool deleteDecoder, bool deleteModelSet);

    // ---- Natural turn taking (WakeWordServiceNtt.cpp) ----
    // Creates the separate "wws_ntt" decoder unless it exists, from manifestPath or the default
    // manifest. The engine status on failure (mNttDecoderReady stays false).
    android::status_t initializeNttDecoder(const char* manifestPath);
    // The engine work of creating it, under mNttLock: model set, decoder, status callback true,
    // the current configuration, thread priority. The configuration call's status.
    android::status_t setNttModel(const char* manifestPath);
    // Deletes the separate decoder (when it exists) and its model set; reports false always.
    void destroyNttModel();
    // Replaces the separate model, restoring the previous one when the new one fails. 0 without
    // change on a unified model.
    android::status_t switchNttModel(const char* nttModelManifestPath);
    // Switches turn taking and chooses its configuration (modes 0 to 3; any other mode with
    // enabled applies DISABLED). The configuration call's status, or the creation's failure.
    android::status_t setNttDetectionMode(bool enabled, int mode);
    // Pushes input audio to the separate NTT decoder when it exists; 0 otherwise.
    android::status_t pushAudioToNttDecoder(void* buffer, size_t sampleCount,
                                            uint64_t firstSampleIndex);
    // Client events placed in the input audio: a computer-vision event (to the unified input
    // decoder or the separate decoder; ignored without either) and a speaker-localization event
    // (separate decoder only). Time stamps are CLOCK_MONOTONIC milliseconds; 16 frames per ms.
    android::status_t onCVEvent(const char* eventJson, int64_t clientTimestamp);
    android::status_t onSpeakerLocalizationEvent(const char* eventJson,
                                                 int64_t clientBeginTimestamp,
                                                 int64_t clientEndTimestamp);
    bool isNttDecoderReady() { return mNttDecoderReady; }
    bool isNttSupportedInWwModel() { return mNttSupportedInWwModel; }

    // ---- PMA (WakeWordServicePma.cpp) ----
    // Loads the PMA model unless loaded, under mPmaLock. 0, or mInitStatus on a failed service.
    android::status_t initializePmaDecoder(const char* manifestPath);
    // The model-loading step: no engine work is defined for it; returns 0.
    android::status_t setPmaModel(const char* manifestPath);
    // Replaces the model (destroy, then load), restoring the previous path's on failure.
    android::status_t switchPmaModel(const char* manifestPath);
    // Deletes the PMA decoder and model set when loaded (under mPmaLock), then reports false.
    void destroyPmaModel();
    // Pushes playback audio to the PMA decoder when it exists; skips (0) while a model change
    // holds mPmaLock, so the playback thread never waits.
    android::status_t pushAudioToPmaDecoder(void* buffer, size_t sampleCount,
                                            uint64_t firstSampleIndex);

    // ---- Members, in declaration order ----
    // Counters and the flags the audio paths read are written on other threads: they are atomics
    // (same size as the plain types) so that every read is defined and, on 32-bit targets, the
    // 64-bit counters are never read torn. The audio paths use relaxed operations.
    android::status_t mInitStatus;
    std::atomic<bool> mBackfillPending;
    uint16_t mBackfillDurationMs;
    std::mutex mBackfillLock;  // try_lock by backfill; skipped when busy
    bool mDetectorEnabled;
    std::atomic<bool> mWWDetectionEnabled;
    std::mutex mWWDetectionLock;  // serialises setWWDetectionEnabled
    std::atomic<bool> mInputModelReady;
    android::String16 mPackageName;
    android::sp<AudioStream> mAudioStream;
    bool mOneMicEnabled;
    android::sp<AudioStream> mOneMicAudioStream;
    android::sp<AudioStreamWriter> mAudioStreamWriter;
    android::sp<AudioStreamWriter> mOneMicAudioStreamWriter;
    uint32_t mBytesPerSample;
    uint32_t mInputBeforeBoundary;
    std::atomic<uint64_t> mInputFrameCount;
    uint32_t mInputAfterBoundary;
    bool mPlaybackViaAudioRecord;
    bool mSuppressPlaybackAtInit;
    bool mPlaybackDetectorInitiated;
    std::atomic<bool> mPlaybackModelReady;
    std::mutex mPlaybackNotifierLock;  // guards use of mPlaybackStatusNotifier
    android::sp<PlaybackStatusNotifier> mPlaybackStatusNotifier;
    uint32_t mPlaybackBeforeBoundary;
    std::atomic<uint64_t> mPlaybackFrameCount;
    uint32_t mPlaybackAfterBoundary;
    bool mNearMissEnabled;
    bool mThreeChannelInput;
    int mDecoderThreadPriority;
    int mAudioRecordFrameCount;
    int32_t mLocalTimeOffset;
    int mTtsStreamType;
    android::sp<AudioRecordInput> mAudioInput;
    android::sp<WakeWordInjector> mInjector;
    android::sp<AspEventMonitor> mAspEventMonitor;
    bool mAedAvailable;
    bool mAedModelSetCreated;
    bool mAedDecoderCreated;
    std::atomic<bool> mAedEnabled;
    std::atomic<bool> mPushDataToPlaybackDetector;
    std::atomic<bool> mNttDetectionEnabled;
    bool mNttEnabled;
    bool mPreloadNttModel;
    std::atomic<bool> mNttDecoderReady;
    // The NTT model set exists in the engine (set by setNttModel, cleared by destroyNttModel):
    // a failed switch drops it only when it was made and its decoder was not.
    bool mNttModelSetCreated = false;
    std::string mNttModelPath;
    std::mutex mNttLock;  // NTT model creation
    NttResult_Callback mNttResultCallback;
    NttEndOfSpeech_Callback mNttEndOfSpeechCallback;
    int32_t mNttConfiguration;
    bool mNttSupportedInWwModel;
    std::atomic<bool> mPmaDecoderReady;
    std::string mPmaModelPath;
    std::mutex mPmaLock;  // PMA decoder creation and destruction; try_lock on the audio push
    const char* mNorvoModelManifestPath;
    std::string mAedStaticModelManifestPath;
    std::string mAedCustomModelPath;
    const char** mWakeWords;
    int mWakeWordCount;
    EnumeratedResult_Callback mEnumeratedResultCallback;
    AcousticEventDetectionResult_Callback mAcousticEventDetectionResultCallback;
    LocalCommandEnumeratedResult_Callback mLocalCommandEnumeratedResultCallback;
    Jsondata_Callback mJsondataCallback;
    AedStaticDecoderStatus_Callback mAedStaticDecoderStatusCallback;
    AedCustomDecoderStatus_Callback mAedCustomDecoderStatusCallback;
    NttDecoderStatus_Callback mNttDecoderStatusCallback;
    PmaDecoderStatus_Callback mPmaDecoderStatusCallback;
    RecordMetrics_Callback mRecordMetricsCallback;
    RecordQuillanMetrics_Callback mRecordQuillanMetricsCallback;
    NorvoFederatedLearning_resultCallback mFederatedLearningResultCallback;
    NorvoFederatedLearning_unsecuredResultCallback mFederatedLearningUnsecuredResultCallback;
    NorvoFederatedLearning_idleDetectionCallback mFederatedLearningIdleDetectionCallback;

  private:
    // Calls a decoder-status callback; a host program may construct the service without one.
    static void reportDecoderStatus(void (*callback)(bool), bool started) {
        if (callback != nullptr) callback(started);
    }
    // Words 0 to 6 of a decoder format for three interleaved channels of 16 kHz, 16-bit audio.
    static void setThreeChannelFormat(NorvoMultichannelAudioFormat& format);

    // Where the one-mic split puts the two channels of one buffer (bytes each).
    struct ChannelSplit {
        uint8_t* channel0;
        uint8_t* channel1;
        size_t bytes;
    };
    // The input path proper. split: buffers for the one-mic split, or null to allocate them for
    // this buffer (callers off the microphone path).
    android::status_t processInputBuffer(void* buffer, size_t frameCount,
                                         const ChannelSplit* split);
    android::status_t processInterleavedInputBuffer(void* buffer, size_t frameCount,
                                                    const ChannelSplit* split);

    // Split buffers of the microphone path only, made once by initializeAudioRecordAndInjector so
    // that the microphone callback never allocates. Touched only by the microphone callback
    // thread; the injector thread and backfill bring their own.
    std::unique_ptr<uint8_t[]> mMicrophoneSplitStorage;
    ChannelSplit mMicrophoneSplit{nullptr, nullptr, 0};

  public:
    // Live buffers (microphone or playback) inside their processing, counted by the audio
    // callback threads from before their injecting check until they return. The injector thread
    // waits for zero before each block, so that a live buffer that passed the check just before
    // an injection started never overlaps an injected block (sample indices, the single-writer
    // mirror stream and frame counters stay single-writer). Atomic only: the live paths never
    // take a lock or wait.
    class LiveBufferInFlight {
      public:
        explicit LiveBufferInFlight(WakeWordService* service);
        ~LiveBufferInFlight();
        LiveBufferInFlight(const LiveBufferInFlight&) = delete;
        LiveBufferInFlight& operator=(const LiveBufferInFlight&) = delete;

      private:
        WakeWordService* const mService;
    };
    // Injector thread: returns once no live buffer is in flight.
    void waitForLiveBuffersInFlight_injector() const;

  private:
    std::atomic<uint32_t> mLiveBuffersInFlight{0};
};

}  // namespace velmar

#endif  // VELMAR_WAKE_WORD_SERVICE_H
