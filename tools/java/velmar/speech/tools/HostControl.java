package velmar.speech.tools;

/**
 * The host platform's side of a device, for the host programs: the microphone, the Android log,
 * and an engine thread for the bridge benchmark. Backed by libwws_host.so; load the engine
 * library first (see {@link WakeWordHost}).
 */
public final class HostControl {
    static {
        System.loadLibrary("wws_host");
    }

    private HostControl() {}

    /** Sends the Android log to path (and to stderr with echo); false if it cannot be written. */
    public static native boolean redirectLog(String path, boolean echo);

    /** The messages of the ERROR log lines so far, oldest first. */
    public static native String[] errors();

    /**
     * Plays 16 kHz mono 16-bit PCM from path ("-" for standard input) on the microphone source, in
     * real time once the service records. The input is a WAV stream, whose header is checked, or
     * raw little-endian PCM. Returns {why it cannot be used or null, what it is, a warning about
     * raw input that does not look like 16-bit PCM or null}.
     */
    public static native String[] attachMicrophone(String path, boolean timeDeliveries);

    /**
     * Captures from an ALSA device ("default", "plughw:1", ...) on the microphone source whenever
     * the service records. Returns null, or why the device cannot capture.
     */
    public static native String attachAlsaMicrophone(String device);

    /** What happened to the ALSA device since the last call: one line per event, oldest first. */
    public static native String[] microphoneEvents();

    /** The microphone's input ended and all of it was delivered. */
    public static native boolean microphoneFinished();

    public static native long microphoneFramesDelivered();

    /** System.nanoTime() at which the microphone delivered this frame, or -1. */
    public static native long deliveryTimeNanos(long frame);

    /**
     * Hands count wake-word results to the bridge from a native thread, as the engine does;
     * result i has detailValue i. Returns System.nanoTime() taken just before each hand-over.
     */
    public static native long[] fireBridgeResults(int count, int blobSize, int pauseMicros);
}
