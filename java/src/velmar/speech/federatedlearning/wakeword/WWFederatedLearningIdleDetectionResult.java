package velmar.speech.federatedlearning.wakeword;

import velmar.speech.federatedlearning.FederatedLearningIdleDetectionResult;

/** The wake-word model's idle-time question. */
public class WWFederatedLearningIdleDetectionResult extends FederatedLearningIdleDetectionResult {
    public WWFederatedLearningIdleDetectionResult(String modelSetId, String modelId,
            long timeSinceLastIdleSec) {
        super(modelSetId, modelId, timeSinceLastIdleSec);
    }
}
