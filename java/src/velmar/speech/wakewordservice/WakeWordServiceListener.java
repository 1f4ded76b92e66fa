package velmar.speech.wakewordservice;

import velmar.speech.federatedlearning.FederatedLearningEvent;
import velmar.speech.federatedlearning.FederatedLearningIdleDetectionResult;
import velmar.speech.federatedlearning.FederatedLearningUnsecuredEvent;
import velmar.speech.wakewordservice.fingerprint.FingerprintResult;

/**
 * What the native service reports. Methods are called on engine threads (results, metrics,
 * federated learning) or on the thread of the native call that started or stopped a decoder (the
 * decoder start and stop reports); they must return quickly. An exception thrown here is logged
 * and cleared by the native side. Every method does nothing unless overridden.
 *
 * <p>Sample indices count frames of input (or playback) audio since the service started. A
 * metadata position and size locate the result's metadata blob in the metadata stream; (0, 0)
 * means there is none.
 */
public interface WakeWordServiceListener {
    /** detectionType is the engine's type plus one (1 to 3). */
    default void onEnumeratedResult(String keyword, String detail, long beginSampleIndex,
            long endSampleIndex, long metadataPosition, long metadataSize, int detailValue,
            int detectionType, String decoderId, long tailValue) {}

    /** detectionType is the engine's type (0 to 2); the two zeros are unused positions. */
    default void onAudioPresenceDetectionResult(String eventName, long beginSampleIndex,
            long endSampleIndex, long unused1, long unused2, boolean eventFlag, int detectionType,
            String decoderId) {}

    /** detectionType is the engine's type plus one (1 to 3). */
    default void onLocalCommandResult(String keyword, String detail, long beginSampleIndex,
            long endSampleIndex, long metadataPosition, long metadataSize, int detailValue,
            int detectionType, String decoderId) {}

    default void onNttResult(long beginSampleIndex, long detectionSampleIndex,
            long metadataPosition, long metadataSize, int eventType, int activeMode,
            String decoderId) {}

    default void onNttEndOfSpeechResult(long endOfSpeechValue) {}

    default void onUtteranceJsonAvailable(String first, String fourth) {}

    /** A decoder started (true) or stopped (false). */
    default void onAedStaticDecoder(boolean started) {}
    default void onAedCustomDecoder(boolean started) {}
    default void onNttDecoder(boolean started) {}
    default void onPmaDecoder(boolean started) {}

    default void onMetrics(NorvoDMSMetricData data) {}
    default void onMetrics(NorvoDMSQuillanMetricData data) {}
    default void onFederatedLearningEvent(FederatedLearningEvent event) {}
    default void onFederatedLearningUnsecuredEvent(FederatedLearningUnsecuredEvent event) {}
    /** Answer by setting the idle time on the result. */
    default void onFederatedLearningIdleDetectionResult(
            FederatedLearningIdleDetectionResult result) {}
    default void onFingerprintResult(FingerprintResult result) {}
}
