package velmar.speech.test;

import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;

// Captures the Android log of the native side: lines are "priority tag: message".
public final class NativeLog {
    static {
        System.loadLibrary("wws_java_test_support");
    }

    public static final int DEBUG = 3;
    public static final int INFO = 4;
    public static final int WARN = 5;
    public static final int ERROR = 6;

    private NativeLog() {}

    public static native void start();
    public static native void stop();
    // Formats native log lines but keeps none (start() captures again).
    public static native void discard();
    public static native String[] lines();

    // Whether the bridge logged message at priority.
    public static boolean contains(int priority, String message) {
        return Arrays.asList(lines()).contains(priority + " WakeWordService_JNI: " + message);
    }

    // Messages of one priority and tag, in order.
    public static List<String> messages(int priority, String tag) {
        List<String> found = new ArrayList<>();
        String prefix = priority + " " + tag + ": ";
        for (String line : lines()) {
            if (line.startsWith(prefix)) found.add(line.substring(prefix.length()));
        }
        return found;
    }
}
