package velmar.speech.test;

/** Drives the fake engine from Java tests; results are fired on the engine's decoder threads. */
public final class FakeNorvo {
    static {
        System.loadLibrary("wws_java_test_support");
    }

    private FakeNorvo() {}

    public static native void reset();
    /** id null: every call of op. */
    public static native void setStatus(String op, String id, int status);
    public static native void setModelSetAttributes(String modelSetId, String json);
    public static native void scriptKeyword(String decoderId, short trigger, String keyword,
            byte[] blob);
    /** Every sample pushed to the decoder so far. */
    public static native short[] pushedSamples(String decoderId);
    /** Recorded calls of op, each as its arguments joined with '|'. */
    public static native String[] calls(String op);

    public static native boolean fireEnumerated(boolean localCommand, String decoderId,
            String keyword, String detail, long begin, long end, int detailValue,
            int detectionType, byte[] blob, long tail);
    /**
     * Calls one bridge callback (named as Recorder names its event) with a plain record, on this
     * thread or on a new native thread. -1: unknown name. On this thread: the number of local
     * references the callback left behind (-2: they cannot be counted). On a native thread: 1 when
     * the thread stayed attached, else 0.
     */
    public static native int callBridgeDirectly(String kind, boolean onNativeThread);
    public static native boolean firePresence(String decoderId, String eventName, long begin,
            long end, int detectionType, boolean flag);
    public static native boolean fireNtt(String decoderId, long begin, int eventType, byte[] blob,
            long detectionIndex, int activeMode);
    public static native boolean fireEndOfSpeech(long value);
    public static native boolean fireJsondata(String t1, String t2, String t3, String t4, int a,
            int b);
    public static native boolean fireMetrics(boolean quillan, String[] texts, int type,
            String[] metadata);
    /** eventType -100: no event record at all. */
    public static native boolean fireFederatedLearning(boolean unsecured, String modelSetId,
            String modelId, int eventType, String json, byte[] data, float scale,
            String applicationId);
    public static native long fireIdleDetection(String modelSetId, String modelId, long seconds);
    public static native void fireConcurrently(int threads, int perThread, int blobSize);
    public static native void fireDecoderStatus(String which, boolean started);
    public static native int callJniOnLoad();
    /** Pushes are only tallied from now on (no record, constant memory). */
    public static native void setAudioPushesCountedOnly(boolean counted);
    /** {events, samples, discontinuities} pushed to the decoder while only counted. */
    public static native long[] pushTally(String decoderId);

    /** Forgets the recorded calls only; the engine's state stays. */
    public static native void forgetCalls();

    /** Bytes the process holds from malloc (0 under ASan). */
    public static native long nativeHeapInUse();
    /**
     * Delivers buffers of frames frames to the service at address through its microphone (or
     * playback) AudioRecord callback on a native thread, as fast as they go; returns when done.
     */
    public static native void deliverBuffers(long address, boolean playback, int buffers,
            int frames);
    /** Makes a JNI call with an exception pending (a misuse -Xcheck:jni reports), then clears it. */
    public static native void callWithExceptionPending();
    /** Creates count local references and keeps them; returns how many more the thread holds. */
    public static native int localReferencesLeftBy(int count);
    public static native String describeService(long address);
}
