package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.ref.WeakReference;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import org.junit.jupiter.api.Test;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;
import velmar.speech.test.ProcessStats;

// A thousand services created and destroyed through the natives leave nothing behind: no global
// reference keeps a Java object alive, no thread stays, memory does not grow.
class LifecycleLeakTest extends ServiceHarness {
    @Test
    void thousandCreateDestroyCycles() throws Exception {
        final int cycles = Integer.getInteger("leak.cycles", 1000);
        // The first cycle starts what a process starts once (class caches, lazily made threads).
        assertEquals(0, create());
        assertTrue(core.nDestroyNativeService());
        FakeNorvo.reset();
        NativeLog.start();
        ProcessStats.settle();
        final Map<String, Integer> threads = ProcessStats.libraryThreads();
        final long resident = ProcessStats.residentKb();
        // The native heap is compared over the second half of the loop: during the first the
        // JVM's own compilers still take and give back malloc memory by the megabyte.
        long heap = 0;

        List<WeakReference<NativeWakeWordServiceCore>> released = new ArrayList<>();
        final long start = System.nanoTime();
        for (int i = 0; i < cycles; i++) {
            if (i == cycles / 2) heap = FakeNorvo.nativeHeapInUse();
            core = new NativeWakeWordServiceCore(recorder);
            assertEquals(0, create(), "cycle " + i);
            assertEquals(0, core.nSetDetectorEnabled(true));
            assertTrue(core.nDestroyNativeService(), "cycle " + i);
            released.add(new WeakReference<>(core));
            // The fake engine's call record and the log capture grow with every cycle; they are
            // the test's, not the library's, so they start afresh.
            FakeNorvo.reset();
            NativeLog.start();
        }
        core = new NativeWakeWordServiceCore(recorder);

        // Nothing native holds on to the destroyed services' Java objects.
        long deadline = System.currentTimeMillis() + 10000;
        long alive;
        do {
            ProcessStats.settle();
            alive = released.stream().filter(ref -> ref.get() != null).count();
        } while (alive > 0 && System.currentTimeMillis() < deadline);
        final Map<String, Integer> threadsAfter = ProcessStats.libraryThreadsSettledAt(threads);
        final long grown = ProcessStats.residentKb() - resident;
        final long heapGrownKb = (FakeNorvo.nativeHeapInUse() - heap) / 1024;
        if (Boolean.getBoolean("soak.report")) {
            System.out.printf("leak: %d services created, enabled and destroyed in %.1f s; "
                            + "%d still referenced; library threads %s before, %s after; "
                            + "native heap %+d kB over the second half, resident memory %+d kB%n",
                    cycles, (System.nanoTime() - start) / 1e9, alive, threads, threadsAfter,
                    heapGrownKb, grown);
        }
        assertEquals(0, alive, "Java objects still referenced from native code");
        assertEquals(threads, threadsAfter, "library threads left running");
        // 0 in sanitizer builds: ASan's quarantine keeps freed memory resident on purpose.
        final long boundKb = Long.getLong("memory.boundKb", 32 * 1024);
        assertTrue(boundKb <= 0 || grown < boundKb, "resident memory grew by " + grown + " kB");
        assertTrue(boundKb <= 0 || heapGrownKb < 4 * 1024,
                "native heap grew by " + heapGrownKb + " kB");
    }
}
