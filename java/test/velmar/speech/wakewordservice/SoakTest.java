package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.Map;
import java.util.concurrent.atomic.AtomicBoolean;
import java.util.concurrent.atomic.AtomicLong;
import org.junit.jupiter.api.Test;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;
import velmar.speech.test.ProcessStats;

// Everything at once: microphone and playback buffers as fast as they go while other threads
// switch detection, models, properties and modes, inject files, and fire engine results into Java.
// Afterwards both frame counters equal what reached the engine, and memory and threads are back.
// The suite runs a short form; scripts/soak.sh runs 10^6 buffers (-Dsoak.buffers).
class SoakTest extends ServiceHarness {
    private static final String PLAYBACK = "WakeWordService_playback_decoder";

    private static File wav(int samples) throws IOException {
        ByteBuffer data = ByteBuffer.allocate(44 + samples * 2).order(ByteOrder.LITTLE_ENDIAN);
        data.put("RIFF".getBytes()).putInt(36 + samples * 2).put("WAVE".getBytes());
        data.put("fmt ".getBytes()).putInt(16).putShort((short) 1).putShort((short) 1);
        data.putInt(16000).putInt(32000).putShort((short) 2).putShort((short) 16);
        data.put("data".getBytes()).putInt(samples * 2);
        for (int i = 0; i < samples; i++) data.putShort((short) (i * 31));
        File file = File.createTempFile("soak", ".wav");
        file.deleteOnExit();
        try (FileOutputStream out = new FileOutputStream(file)) {
            out.write(data.array());
        }
        return file;
    }

    @Test
    void everythingAtOnce() throws Exception {
        final int buffers = Integer.getInteger("soak.buffers", 40000);
        final boolean report = Boolean.getBoolean("soak.report");
        flags[0] = true;  // playback capture: the playback decoder exists
        flags[2] = true;  // audio event detection available
        flags[5] = true;  // turn-taking callbacks registered
        final Map<String, Integer> threadsBefore = ProcessStats.libraryThreads();
        // Results are counted, not kept: the test's own records would otherwise grow with the run
        // and the JVM's memory with them.
        recorder.keepEvents = false;
        assertEquals(0, create());
        FakeNorvo.setAudioPushesCountedOnly(true);
        NativeLog.discard();  // the capture would grow with the run
        final long address = nativeInstance();
        final File file = wav(1600);
        final AtomicBoolean done = new AtomicBoolean();
        final AtomicLong controlRounds = new AtomicLong();

        // Warm-up before the memory baseline: a tenth of the run.
        FakeNorvo.deliverBuffers(address, false, buffers / 10, 160);
        ProcessStats.settle();
        final long residentBefore = ProcessStats.residentKb();
        final long heapBefore = FakeNorvo.nativeHeapInUse();

        Thread control = new Thread(() -> {
            String[] words = {"HEYVELMAR"};
            for (int i = 0; !done.get(); i++) {
                core.nSetDetectorEnabled(i % 2 == 0);
                core.nSetNorvoProperty("Volume", i);
                core.nSetAudioEventDetectionMode(i % 3 == 0);
                core.nSetNttDetectionMode(i % 5 != 0, i % 4);
                if (i % 50 == 0) core.nSwitchNorvoModel(manifest, words);
                if (i % 20 == 0) core.nInjectWaveFile(file.getPath(), i % 40 == 0);
                if (i % 50 == 49) FakeNorvo.forgetCalls();  // the record would grow with the run
                controlRounds.incrementAndGet();
            }
        });
        Thread results = new Thread(() -> {
            for (int i = 0; !done.get(); i++) {
                FakeNorvo.fire("enumerated", new String[] {INPUT, "HEYVELMAR", ""},
                        new double[] {i, i + 1}, new byte[] {1, 2, 3});
                FakeNorvo.fire("metrics", new String[] {"p", "s", "n", "v"}, null, null);
            }
        });
        // Buffers go in chunks until the count, enough control rounds and enough results are
        // reached, so that every kind of change lands between buffers many times over and a leak
        // per result would show in the heap.
        final int chunk = 500;
        final long rounds = Math.max(40, buffers / 2000);
        final long resultsWanted = buffers / 20;
        final AtomicLong playbackBuffers = new AtomicLong();
        Thread playback = new Thread(() -> {
            while (playbackBuffers.get() < buffers || controlRounds.get() < rounds
                    || recorder.count("metrics") < resultsWanted) {
                FakeNorvo.deliverBuffers(address, true, chunk, 256);
                playbackBuffers.addAndGet(chunk);
            }
        });
        control.start();
        results.start();
        playback.start();
        final long start = System.nanoTime();
        long microphoneBuffers = 0;
        while (microphoneBuffers < buffers || controlRounds.get() < rounds
                || recorder.count("metrics") < resultsWanted) {
            FakeNorvo.deliverBuffers(address, false, chunk, 160);
            microphoneBuffers += chunk;
        }
        playback.join();
        done.set(true);
        control.join();
        results.join();
        final double seconds = (System.nanoTime() - start) / 1e9;
        // Let the last injection end, so that its frames are all counted and pushed.
        long deadline = System.currentTimeMillis() + 10000;
        while (System.currentTimeMillis() < deadline && !core.nInjectWaveFile(file.getPath(), false)) {
            Thread.sleep(10);
        }
        long settled = -1;
        while (System.currentTimeMillis() < deadline && settled != core.nGetInputFrameCount()) {
            settled = core.nGetInputFrameCount();
            Thread.sleep(200);
        }

        long[] input = FakeNorvo.pushTally(INPUT);
        long[] played = FakeNorvo.pushTally(PLAYBACK);
        assertEquals(input[1], core.nGetInputFrameCount(), "every input frame counted was pushed");
        assertEquals(played[1], core.nGetPlaybackFrameCount(), "every playback frame counted was pushed");
        assertTrue(core.nGetPlaybackFrameCount() > 0);
        ProcessStats.settle();
        final long residentAfter = ProcessStats.residentKb();
        final long heapGrownKb = (FakeNorvo.nativeHeapInUse() - heapBefore) / 1024;
        assertTrue(core.nDestroyNativeService());
        final Map<String, Integer> threadsAfter = ProcessStats.libraryThreadsSettledAt(threadsBefore);
        final long resultsIntoJava = recorder.count("enumerated") + recorder.count("metrics");
        if (report) {
            System.out.printf("soak: %d microphone and %d playback buffers in %.1f s, %d control "
                            + "rounds, %d results into Java; input frames %d (%d discontinuities), "
                            + "playback frames %d (%d discontinuities); native heap %+d kB, resident "
                            + "memory %+d kB (the JVM's heap included); library threads %s before, "
                            + "%s after%n",
                    microphoneBuffers, playbackBuffers.get(), seconds, controlRounds.get(),
                    resultsIntoJava, input[1], input[2], played[1], played[2], heapGrownKb,
                    residentAfter - residentBefore, threadsBefore, threadsAfter);
        }
        // Each path has one writer at a time: every push starts where the one before it ended.
        assertEquals(0, input[2], "input index jumps");
        assertEquals(0, played[2], "playback index jumps");
        // What native code keeps must not grow with the run. The bound is far below what a leak
        // of a few hundred bytes per result or per thousand buffers would add; 0 in sanitizer
        // builds, whose quarantine keeps freed memory on purpose.
        final long boundKb = Long.getLong("memory.boundKb", 1024);
        assertTrue(boundKb <= 0 || heapGrownKb < boundKb,
                "native heap grew by " + heapGrownKb + " kB over " + resultsIntoJava + " results");
        assertTrue(boundKb <= 0 || residentAfter - residentBefore < 256 * 1024,
                "resident memory grew by " + (residentAfter - residentBefore) + " kB");
        assertEquals(threadsBefore, threadsAfter, "library threads left running");
    }
}
