package velmar.speech.federatedlearning.wakeword;

import velmar.speech.federatedlearning.FederatedLearningEvent;

/** Federated-learning material about the wake-word model. */
public class WWFederatedLearningEvent extends FederatedLearningEvent {
    public WWFederatedLearningEvent(String modelSetId, String modelId, String eventType,
            String metadataJson, byte[] data) {
        super(modelSetId, modelId, eventType, metadataJson, data);
    }
}
