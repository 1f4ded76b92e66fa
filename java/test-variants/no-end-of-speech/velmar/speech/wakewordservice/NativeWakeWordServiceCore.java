package velmar.speech.wakewordservice;

import velmar.speech.audio.AudioStream;
import velmar.speech.federatedlearning.FederatedLearningEvent;
import velmar.speech.federatedlearning.FederatedLearningIdleDetectionResult;
import velmar.speech.federatedlearning.FederatedLearningUnsecuredEvent;
import velmar.speech.wakewordservice.fingerprint.FingerprintResult;

/**
 * A build of the core class that predates end-of-speech reports (it has no handler for them).
 * The native library must still load against it.
 *
 * The Java half of the native wake-word service. One instance per process creates the native
 * service ({@link #nCreateNativeService}), drives it through the other natives, and receives every
 * engine result through the callback methods below, which forward to the listener.
 *
 * <p>Natives return Android statuses (0 success, negative errors, 22 when no service exists yet
 * for the simple setters) unless their doc says otherwise. Create and destroy must not run
 * concurrently with each other or with other natives.
 */
public class NativeWakeWordServiceCore {
    static {
        System.loadLibrary("wakewordservice");
    }

    /** Address of the native service, 0 when none; written by native code only. */
    private long mNativeInstance;

    private final WakeWordServiceListener mListener;

    public NativeWakeWordServiceCore(WakeWordServiceListener listener) {
        mListener = listener;
    }

    // ---- natives ----------------------------------------------------------------------------

    public native int nCreateNativeService(String packageName, AudioStream audioStream,
            AudioStream oneMicAudioStream, AudioStream metadataStream,
            String norvoModelManifestPath, String aedStaticModelManifestPath,
            String nttModelManifestPath, String pmaModelManifestPath,
            String aedCustomModelJsonPath, String[] wakeWords, boolean playbackViaAudioRecord,
            boolean suppressPlaybackAtInit, boolean aedAvailable, boolean nearMissEnabled,
            boolean threeChannelInput, boolean nttEnabled, boolean preloadNttModel,
            int decoderThreadPriority, int audioRecordFrameCount, int localTimeOffset,
            int ttsStreamType);
    public native boolean nDestroyNativeService();
    public native int nSetDetectorEnabled(boolean enabled);
    public native boolean nGetDetectorEnabled();
    public native int nSetWWDetectionEnabled(boolean enabled);
    public native int nSetWWDetectionEnabledForLpm(boolean enabled, int value);
    public native int nSwitchNorvoModel(String norvoModelManifestPath, String[] wakeWords);
    public native boolean nInjectWaveFile(String filePath, boolean toPlayback);
    public native int nSetNorvoProperty(String name, int value);
    public native int nOnCVEvent(String eventJson, long clientTimestamp);
    public native int nOnSpeakerLocalizationEvent(String eventJson, long clientBeginTimestamp,
            long clientEndTimestamp);
    public native int nSetNorvoAcousticProperty(String name, int value);
    public native int nSetAudioEventDetectionMode(boolean enabled);
    public native int nSetNttDetectionMode(boolean enabled, int mode);
    public native int nSwitchNttModel(String nttModelManifestPath);
    public native int nSwitchPmaModel(String pmaModelManifestPath);
    public native int nEnablePlaybackDetector();
    public native boolean nSetPushDataToPlaybackDetectorEnabled(boolean enabled);
    public native int nResetAudioInput();
    public native String nGetAudioPresenceData();
    public native long nGetInputFrameCount();
    public native long nGetInputFrameTime();
    public native long nGetPlaybackFrameCount();
    public native int nSetFingerprintDatabase(String fingerprintDatabasePath);
    public native String nGetNorvoLibraryAttributes();
    public native String nGetWakeWordModelSetAttributes();
    public native String nGetAudioPresenceModelSetAttributes();
    public native String nGetNaturalTurnTakingModelSetAttributes();
    public native int nSetAedStaticModel(String manifestPath);
    public native int nSetAedCustomModel(String jsonPath);
    public native void nSetBacklogWatermarks(int low, int high);
    public native void nSetNorvoPriorities(int first, int second);
    public native int nNotifyTtsState(boolean isPlaying);

    // ---- callbacks from native code -----------------------------------------------------------

    void handleEnumeratedResult(String keyword, String detail, long beginSampleIndex,
            long endSampleIndex, long metadataPosition, long metadataSize, int detailValue,
            int detectionType, String decoderId, long tailValue) {
        mListener.onEnumeratedResult(keyword, detail, beginSampleIndex, endSampleIndex,
                metadataPosition, metadataSize, detailValue, detectionType, decoderId, tailValue);
    }

    void handleAudioPresenceDetectionResult(String eventName, long beginSampleIndex,
            long endSampleIndex, long unused1, long unused2, boolean eventFlag, int detectionType,
            String decoderId) {
        mListener.onAudioPresenceDetectionResult(eventName, beginSampleIndex, endSampleIndex,
                unused1, unused2, eventFlag, detectionType, decoderId);
    }

    void handleLocalCommandResult(String keyword, String detail, long beginSampleIndex,
            long endSampleIndex, long metadataPosition, long metadataSize, int detailValue,
            int detectionType, String decoderId) {
        mListener.onLocalCommandResult(keyword, detail, beginSampleIndex, endSampleIndex,
                metadataPosition, metadataSize, detailValue, detectionType, decoderId);
    }

    void handleNttResult(long beginSampleIndex, long detectionSampleIndex, long metadataPosition,
            long metadataSize, int eventType, int activeMode, String decoderId) {
        mListener.onNttResult(beginSampleIndex, detectionSampleIndex, metadataPosition,
                metadataSize, eventType, activeMode, decoderId);
    }

    void handleUtteranceJsonAvailable(String first, String fourth) {
        mListener.onUtteranceJsonAvailable(first, fourth);
    }

    void aedStaticDecoderStart() { mListener.onAedStaticDecoder(true); }
    void aedStaticDecoderStop() { mListener.onAedStaticDecoder(false); }
    void aedCustomDecoderStart() { mListener.onAedCustomDecoder(true); }
    void aedCustomDecoderStop() { mListener.onAedCustomDecoder(false); }
    void nttDecoderStart() { mListener.onNttDecoder(true); }
    void nttDecoderStop() { mListener.onNttDecoder(false); }
    void pmaDecoderStart() { mListener.onPmaDecoder(true); }
    void pmaDecoderStop() { mListener.onPmaDecoder(false); }

    void recordMetrics(NorvoDMSMetricData data) {
        mListener.onMetrics(data);
    }

    void recordMetrics(NorvoDMSQuillanMetricData data) {
        mListener.onMetrics(data);
    }

    void handleFederatedLearningEvent(FederatedLearningEvent event) {
        mListener.onFederatedLearningEvent(event);
    }

    void handleFederatedLearningUnsecuredEvent(FederatedLearningUnsecuredEvent event) {
        mListener.onFederatedLearningUnsecuredEvent(event);
    }

    void handleFederatedLearningIdleDetectionResult(FederatedLearningIdleDetectionResult result) {
        mListener.onFederatedLearningIdleDetectionResult(result);
    }

    void handleFingerprintResultEvent(FingerprintResult result) {
        mListener.onFingerprintResult(result);
    }
}
