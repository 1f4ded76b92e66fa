package velmar.speech.federatedlearning;

/** Federated-learning material released without secure aggregation, with its scaling value. */
public class FederatedLearningUnsecuredEvent extends FederatedLearningEvent {
    public float mSmpcScaleValue;
    public String mApplicationId;

    public FederatedLearningUnsecuredEvent(String modelSetId, String modelId, String eventType,
            String metadataJson, byte[] data, float smpcScaleValue, String applicationId) {
        super(modelSetId, modelId, eventType, metadataJson, data);
        mSmpcScaleValue = smpcScaleValue;
        mApplicationId = applicationId;
    }
}
