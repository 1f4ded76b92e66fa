package velmar.speech.test;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Paths;

/** What the operating system says of this process: resident memory and threads. */
public final class ProcessStats {
    private ProcessStats() {}

    private static long field(String name) {
        try {
            for (String line : Files.readAllLines(Paths.get("/proc/self/status"))) {
                if (line.startsWith(name + ":")) {
                    return Long.parseLong(line.substring(name.length() + 1).trim().split("\\s+")[0]);
                }
            }
        } catch (IOException e) {
            throw new AssertionError(e);
        }
        throw new AssertionError("no " + name + " in /proc/self/status");
    }

    public static long residentKb() {
        return field("VmRSS");
    }

    public static long threads() {
        return field("Threads");
    }

    /** Collects garbage until the heap settles, so that memory figures compare like with like. */
    public static void settle() {
        for (int i = 0; i < 3; i++) {
            System.gc();
            System.runFinalization();
        }
    }
}
