package velmar.speech.test;

import java.io.File;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Paths;
import java.util.Map;
import java.util.TreeMap;

// What the operating system says of this process: resident memory and the library's threads.
public final class ProcessStats {
    private ProcessStats() {}

    // Names of the threads the library, its host platform and its engines start. The JVM starts and
    // ends threads of its own when it likes (compilers, collectors, cleaners), so tests count only
    // these. The host binder's thread is left out: it starts once per process and stays.
    private static final String[] LIBRARY_THREADS = {"AudioRecordInput", "AudioRecordCb",
            "AudioStreamReader", "WakeWordInjector", "PlaybackStatusNotifer", "PlaybackMonitor",
            "AspEventMonitor", "AspEventHandler", "NorvoSpotter", "FakeNorvo"};

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

    // The library's running threads: name (as the kernel keeps it, 15 characters) to count.
    public static Map<String, Integer> libraryThreads() {
        Map<String, Integer> counts = new TreeMap<>();
        File[] tasks = new File("/proc/self/task").listFiles();
        for (File task : tasks == null ? new File[0] : tasks) {
            String name;
            try {
                name = Files.readString(new File(task, "comm").toPath()).trim();
            } catch (IOException gone) {
                continue;  // the thread ended while the folder was read
            }
            for (String library : LIBRARY_THREADS) {
                if (library.substring(0, Math.min(15, library.length())).equals(name)) {
                    counts.merge(name, 1, Integer::sum);
                }
            }
        }
        return counts;
    }

    // The library's threads once they equal expected, or as they are when 10 s have passed.
    public static Map<String, Integer> libraryThreadsSettledAt(Map<String, Integer> expected)
            throws InterruptedException {
        final long deadline = System.nanoTime() + 10_000_000_000L;
        Map<String, Integer> now = libraryThreads();
        while (!now.equals(expected) && System.nanoTime() < deadline) {
            Thread.sleep(10);
            now = libraryThreads();
        }
        return now;
    }

    // Collects garbage until the heap settles, so that memory figures compare like with like.
    public static void settle() {
        for (int i = 0; i < 3; i++) {
            System.gc();
            System.runFinalization();
        }
    }
}
