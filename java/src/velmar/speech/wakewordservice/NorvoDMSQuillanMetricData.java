package velmar.speech.wakewordservice;

import java.util.List;

/** One Quillan-channel metric data point reported by the engine. */
public class NorvoDMSQuillanMetricData {
    public String groupID;
    public String schemaID;
    public String dataPointName;
    public String dataPointValue;
    /** "CT" (counter), "DV" (discrete value) or "" (unknown). */
    public String dataPointType;
    public int dataPointSamples = 1;
    /** Null unless the data point carries metadata. */
    public List<NorvoDMSMetricMetadata> metadataList;

    public NorvoDMSQuillanMetricData() {}

    public static class NorvoDMSMetricMetadata {
        public String metadataName;
        public String metadataValue;

        public NorvoDMSMetricMetadata(String name, String value) {
            metadataName = name;
            metadataValue = value;
        }
    }
}
