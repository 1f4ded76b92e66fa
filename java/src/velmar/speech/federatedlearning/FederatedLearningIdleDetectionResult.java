package velmar.speech.federatedlearning;

/**
 * The engine's question how long the device has been idle. The handler answers by setting the
 * idle time; the engine reads it back through {@link #getTimeSinceLastIdleSec()}.
 */
public class FederatedLearningIdleDetectionResult {
    public String mModelSetId;
    public String mModelId;
    public long mTimeSinceLastIdleSec;

    public FederatedLearningIdleDetectionResult(String modelSetId, String modelId,
            long timeSinceLastIdleSec) {
        mModelSetId = modelSetId;
        mModelId = modelId;
        mTimeSinceLastIdleSec = timeSinceLastIdleSec;
    }

    public long getTimeSinceLastIdleSec() {
        return mTimeSinceLastIdleSec;
    }

    public void setTimeSinceLastIdleSec(long seconds) {
        mTimeSinceLastIdleSec = seconds;
    }
}
