package velmar.speech.test;

// Drives the fake engine from Java tests and hands engine records to the bridge.
public final class FakeNorvo {
    static {
        System.loadLibrary("wws_java_test_support");
    }

    private FakeNorvo() {}

    public static native void reset();
    // id null: every call of op.
    public static native void setStatus(String op, String id, int status);
    public static native void setModelSetAttributes(String modelSetId, String json);
    // Recorded calls of op, each as its arguments joined with '|'.
    public static native String[] calls(String op);

    // Hands one engine record of the given kind (named as Recorder names its event) to the
    // callback the service registered with the engine, on the input decoder's thread; or, with
    // throughEngine false, to the bridge's own function on this thread. Returns Long.MIN_VALUE when
    // there is no callback; else 0, or for "flIdle" the idle time the record holds afterwards.
    //   enumerated, localCommand: texts decoder, keyword, detail; numbers begin, end, detailValue,
    //       detectionType, tail
    //   presence: texts decoder, event name; numbers begin, end, detectionType, flag
    //   ntt: texts decoder; numbers begin, eventType, detection index, activeMode
    //   endOfSpeech: numbers value.  json: four texts, two numbers
    //   metrics, quillanMetrics: texts program/group, source/schema, name, value, then metadata
    //       name, value, ...; numbers type
    //   flEvent, flUnsecured: texts model set, model, json, application; numbers eventType (-100:
    //       no event record), scale; blob the data.  flIdle: texts model set, model; numbers seconds
    //   aedStatic, aedCustom, nttDecoder, pmaDecoder (bridge only): numbers started (1 or 0)
    public static native long fire(String kind, String[] texts, double[] numbers, byte[] blob,
            boolean throughEngine);

    public static long fire(String kind, String[] texts, double[] numbers, byte[] blob) {
        return fire(kind, texts, numbers, blob, true);
    }

    // Calls one bridge callback with a plain record, on this thread or on a new native thread.
    // -1: unknown name. On this thread: the local references the callback left behind (-2: they
    // cannot be counted). On a native thread: 1 when the thread stayed attached, else 0.
    public static native int callBridgeDirectly(String kind, boolean onNativeThread);
    public static native int callJniOnLoad();
    // Pushes are only tallied from now on (no record, constant memory).
    public static native void setAudioPushesCountedOnly(boolean counted);
    // {events, samples, discontinuities} pushed to the decoder while only counted.
    public static native long[] pushTally(String decoderId);
    // Forgets the recorded calls only; the engine's state stays.
    public static native void forgetCalls();
    // Bytes the process holds from malloc (0 under ASan).
    public static native long nativeHeapInUse();
    // Delivers buffers of frames frames to the service at address through its microphone (or
    // playback) AudioRecord callback on a native thread, as fast as they go; returns when done.
    public static native void deliverBuffers(long address, boolean playback, int buffers,
            int frames);
    // Makes a JNI call with an exception pending (a misuse -Xcheck:jni reports), then clears it.
    public static native void callWithExceptionPending();
    // Creates count local references and keeps them; returns how many more the thread holds.
    public static native int localReferencesLeftBy(int count);
    public static native String describeService(long address);
}
