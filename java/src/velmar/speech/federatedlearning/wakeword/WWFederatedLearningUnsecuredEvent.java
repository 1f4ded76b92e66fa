package velmar.speech.federatedlearning.wakeword;

import velmar.speech.federatedlearning.FederatedLearningUnsecuredEvent;

/** Unsecured federated-learning material about the wake-word model. */
public class WWFederatedLearningUnsecuredEvent extends FederatedLearningUnsecuredEvent {
    public WWFederatedLearningUnsecuredEvent(String modelSetId, String modelId, String eventType,
            String metadataJson, byte[] data, float smpcScaleValue, String applicationId) {
        super(modelSetId, modelId, eventType, metadataJson, data, smpcScaleValue, applicationId);
    }
}
