package velmar.speech.bench;

import java.io.File;
import java.util.Arrays;
import velmar.speech.audio.AudioStream;
import velmar.speech.tools.HostControl;
import velmar.speech.wakewordservice.NativeWakeWordServiceCore;
import velmar.speech.wakewordservice.WakeWordServiceListener;

// The bridge's own cost from an engine result to the Java listener: a native thread that is not
// attached to the VM (as an engine's decoder thread) hands wake-word results with a 64-byte blob
// to the bridge's callback, which attaches the thread, writes the blob into the metadata stream,
// builds the Java strings and calls the listener. Measured per result: the listener's
// System.nanoTime() minus the time just before the hand-over.
//
// BridgeCostBenchmark --engine LIB --manifest FILE [--results N] [--log FILE]
public final class BridgeCostBenchmark {
    public static void main(String[] args) throws Exception {
        String engine = null, manifest = null, log = "bridge-benchmark.log";
        int results = 20000;
        for (int i = 0; i + 1 < args.length; i += 2) {
            switch (args[i]) {
                case "--engine": engine = args[i + 1]; break;
                case "--manifest": manifest = args[i + 1]; break;
                case "--results": results = Integer.parseInt(args[i + 1]); break;
                case "--log": log = args[i + 1]; break;
                default: throw new IllegalArgumentException("unknown option " + args[i]);
            }
        }
        System.load(new File(engine).getAbsolutePath());
        HostControl.redirectLog(log, false);
        final long[] reached = new long[results];
        NativeWakeWordServiceCore core = new NativeWakeWordServiceCore(new WakeWordServiceListener() {
            @Override
            public void onEnumeratedResult(String keyword, String detail, long begin, long end,
                    long position, long size, int detailValue, int detectionType,
                    String decoderId, long tailValue) {
                reached[detailValue] = System.nanoTime();
            }
        });
        AudioStream audio = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 20);
        AudioStream metadata = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 20);
        int status = core.nCreateNativeService("velmar.speech.bench", audio, null, metadata,
                manifest, "", "", "", "", new String[] {"PURPLE_ELEPHANT"}, false, false, false,
                false, false, false, false, -19, 320, 0, 9);
        if (status != 0) throw new IllegalStateException("service did not start: " + status);
        // Warm-up: class loading and the JIT, not counted.
        HostControl.fireBridgeResults(Math.min(results, 3000), 64, 50);
        Arrays.fill(reached, 0);
        long[] started = HostControl.fireBridgeResults(results, 64, 50);
        core.nDestroyNativeService();
        audio.close();
        metadata.close();

        double[] micros = new double[results];
        for (int i = 0; i < results; i++) micros[i] = (reached[i] - started[i]) / 1e3;
        Arrays.sort(micros);
        System.out.printf("%d results: engine result to Java listener median %.1f us, 99th "
                        + "percentile %.1f us, worst %.1f us%n",
                results, micros[results / 2], micros[(int) (results * 0.99)],
                micros[results - 1]);
    }
}
