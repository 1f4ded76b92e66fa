package velmar.speech.federatedlearning;

/** Federated-learning material about one model. */
public class FederatedLearningEvent {
    public String mModelSetId;
    public String mModelId;
    /** "wakeword", or "" when the engine reported an unknown kind. */
    public String mEventType;
    public String mMetadataJson;
    public byte[] mData;

    public FederatedLearningEvent(String modelSetId, String modelId, String eventType,
            String metadataJson, byte[] data) {
        mModelSetId = modelSetId;
        mModelId = modelId;
        mEventType = eventType;
        mMetadataJson = metadataJson;
        mData = data;
    }
}
