package velmar.speech.wakewordservice.fingerprint;

/** A fingerprint match over a sample range. */
public class FingerprintResult {
    public byte[] mBlob;
    public long mStartSampleIndex;
    public long mEndSampleIndex;
    public String mFingerprintFilterString;

    public FingerprintResult(byte[] blob, long startSampleIndex, long endSampleIndex,
            String fingerprintFilterString) {
        mBlob = blob;
        mStartSampleIndex = startSampleIndex;
        mEndSampleIndex = endSampleIndex;
        mFingerprintFilterString = fingerprintFilterString;
    }
}
