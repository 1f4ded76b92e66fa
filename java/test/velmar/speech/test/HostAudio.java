package velmar.speech.test;

/** Plays the device's part in Java tests: audio for the host audio system's input sources. */
public final class HostAudio {
    static {
        System.loadLibrary("wws_java_test_support");
    }

    public static final int MICROPHONE = 1999;
    public static final int PLAYBACK = 2999;

    private HostAudio() {}

    /** Forgets every source and setting of the host audio system. */
    public static native void reset();
    /** Queues samples (interleaved as the recording expects) for recordings on source. */
    public static native void push(int source, short[] samples);
}
