package velmar.speech.test;

// Drives the fake engine from Java tests and hands engine records to the bridge.
public final class FakeNorvo {
    static {
        System.loadLibrary("wws_java_test_support");
    }

    private FakeNorvo() {}

    public static native void reset();
    // Every later call of op returns status.
    public static native void setStatus(String op, int status);
    public static native void setModelSetAttributes(String modelSetId, String json);
    // Recorded calls of op, each as its arguments joined with '|'.
    public static native String[] calls(String op);

    // Threads fire() hands a record over on.
    public static final int ENGINE = 0, JAVA = 1, NATIVE = 2;

    // Hands one engine record of the given kind (named as Recorder names its event) over: on the
    // input decoder's thread (ENGINE) to the callback the service registered with the engine, or
    // straight to the bridge's own function on this thread (JAVA) or a new native thread (NATIVE).
    // Returns Long.MIN_VALUE when there is no callback. Else on ENGINE 0, or for "flIdle" the idle
    // time the record holds afterwards; on JAVA the local references the callback left on this
    // thread (-2: they cannot be counted); on NATIVE 1 when it left the thread attached, else 0.
    //   enumerated, localCommand: texts decoder, keyword, detail; numbers begin, end, detailValue,
    //       detectionType, tail
    //   presence: texts decoder, event name; numbers begin, end, detectionType, flag
    //   ntt: texts decoder; numbers begin, eventType, detection index, activeMode
    //   endOfSpeech: numbers value.  json: four texts, two numbers
    //   metrics, quillanMetrics: texts program/group, source/schema, name, value, then metadata
    //       name, value, ...; numbers type
    //   flEvent, flUnsecured: texts model set, model, json, application; numbers eventType (-100:
    //       no event record), scale; blob the data.  flIdle: texts model set, model; numbers seconds
    //   aedStatic, aedCustom, nttDecoder, pmaDecoder (not ENGINE): numbers started (1 or 0)
    public static native long fire(String kind, String[] texts, double[] numbers, byte[] blob,
            int thread);

    public static long fire(String kind, String[] texts, double[] numbers, byte[] blob) {
        return fire(kind, texts, numbers, blob, ENGINE);
    }

    // A plain record that every kind takes as valid (type 0, mode 0), handed to the bridge.
    public static long fireBridge(String kind, int thread) {
        return fire(kind, new String[] {"WakeWordService_input_decoder", "K", "d", "e", "k", "v"},
                new double[] {0, 0, 1, 0, 1}, new byte[] {1, 2}, thread);
    }

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
    // Creates count local references and keeps them, returning how many more the thread holds;
    // then makes a JNI call with an exception pending (a misuse -Xcheck:jni reports), cleared.
    public static native int misuseJni(int count);
}
