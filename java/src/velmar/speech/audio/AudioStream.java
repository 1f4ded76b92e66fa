package velmar.speech.audio;

/**
 * A shared PCM stream of the audio stream library (host implementation): one native writer, any
 * number of readers, 32-bit byte positions that wrap. Native code takes the stream from
 * {@code mNativeInstance} under the library's JNI mutex; {@link #close()} clears it under the same
 * mutex, so native code never sees a freed stream.
 */
public final class AudioStream implements AutoCloseable {
    static {
        System.loadLibrary("audiostream_jni");
    }

    /** Sample formats, as the platform numbers them. */
    public static final int FORMAT_PCM_16_BIT = 1;
    public static final int FORMAT_PCM_8_BIT = 2;
    public static final int FORMAT_PCM_32_BIT = 3;

    /** Address of the native stream (one strong reference held); 0 once closed. */
    private long mNativeInstance;

    /**
     * @param format one of the FORMAT_ constants (any platform format value is accepted)
     * @param capacityBytes bytes the stream keeps; rounded up to a power of two
     */
    public AudioStream(int format, int sampleRate, int channelCount, int capacityBytes) {
        mNativeInstance = nativeCreate(format, sampleRate, channelCount, capacityBytes);
        if (mNativeInstance == 0) {
            throw new IllegalStateException("could not create the native stream");
        }
    }

    /** Position one past the last byte written. */
    public long writePosition() {
        return nativeWritePosition() & 0xffffffffL;
    }

    /**
     * Reads {@code size} bytes starting at byte {@code position} (as native code reported it).
     * Returns fewer bytes when the stream no longer holds all of them or they are not written yet.
     */
    public byte[] read(long position, int size) {
        return nativeRead((int) position, size);
    }

    /** Opens the stream's writer from Java (for a second producer); false when one is open. */
    public boolean canOpenWriter() {
        return nativeCanOpenWriter();
    }

    @Override
    public void close() {
        nativeRelease();
    }

    private static native long nativeCreate(int format, int sampleRate, int channelCount,
            int capacityBytes);
    private native void nativeRelease();
    private native int nativeWritePosition();
    private native byte[] nativeRead(int position, int size);
    private native boolean nativeCanOpenWriter();
}
