package velmar.speech.wakewordservice;

import java.util.List;

/** One DMS metric data point reported by the engine. */
public class NorvoDMSMetricData {
    public String programName;
    public String sourceName;
    public String dataPointName;
    public String dataPointValue;
    /** "CT" (counter), "DV" (discrete value) or "" (unknown). */
    public String dataPointType;
    public int dataPointSamples = 1;
    public boolean isHighPriority;
    /** Null unless the data point carries metadata. */
    public List<NorvoDMSMetricMetadata> metadataList;

    public NorvoDMSMetricData() {}

    public static class NorvoDMSMetricMetadata {
        public String metadataName;
        public String metadataValue;

        public NorvoDMSMetricMetadata(String name, String value) {
            metadataName = name;
            metadataValue = value;
        }
    }
}
