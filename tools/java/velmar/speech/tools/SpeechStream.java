package velmar.speech.tools;

import java.util.Arrays;

/** Audio built from pauses and speech clips, remembering where each clip landed. */
public final class SpeechStream {
    private short[] mSamples = new short[0];

    public void silence(double seconds) {
        mSamples = Arrays.copyOf(mSamples, mSamples.length + (int) Math.round(seconds * Wav.RATE));
    }

    /** Appends the clip; returns its first and last sample in the stream. */
    public long[] add(short[] clip) {
        int begin = mSamples.length;
        mSamples = Arrays.copyOf(mSamples, begin + clip.length);
        System.arraycopy(clip, 0, mSamples, begin, clip.length);
        return new long[] {begin, begin + clip.length - 1};
    }

    public short[] samples() {
        return mSamples.clone();
    }

    public int length() {
        return mSamples.length;
    }
}
