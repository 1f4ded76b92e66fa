package velmar.speech.bench;

import java.io.File;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import velmar.speech.audio.AudioStream;
import velmar.speech.tools.HostControl;
import velmar.speech.tools.SpeechStream;
import velmar.speech.tools.Wav;
import velmar.speech.wakewordservice.NativeWakeWordServiceCore;
import velmar.speech.wakewordservice.WakeWordServiceListener;

// How long after a wake phrase ends Java hears of it. Wake phrases (flite clips from the build,
// with pauses between them) play on the microphone source in real time, as a device's microphone
// would deliver them: 20 ms buffers through the host AudioRecord, the service's capture path, the
// engine's queue and decoder thread, the bridge, and the listener. For each phrase: the time the
// listener was called minus the time the microphone delivered the phrase's last sample (the end of
// its speech, trimmed of silence).
//
// DetectionLatencyBenchmark --engine LIB --manifest FILE --clips DIR [--phrases N] [--log FILE]
public final class DetectionLatencyBenchmark {
    private record Heard(String keyword, long begin, long end, long nanos) {}

    public static void main(String[] args) throws Exception {
        String engine = null, manifest = null, clips = null, log = "latency-benchmark.log";
        int phrases = 30;
        for (int i = 0; i + 1 < args.length; i += 2) {
            switch (args[i]) {
                case "--engine": engine = args[i + 1]; break;
                case "--manifest": manifest = args[i + 1]; break;
                case "--clips": clips = args[i + 1]; break;
                case "--phrases": phrases = Integer.parseInt(args[i + 1]); break;
                case "--log": log = args[i + 1]; break;
                default: throw new IllegalArgumentException("unknown option " + args[i]);
            }
        }
        System.load(new File(engine).getAbsolutePath());
        HostControl.redirectLog(log, false);

        String[] names = {"purple_elephant", "orange_bicycle"};
        String[] keywords = {"PURPLE_ELEPHANT", "ORANGE_BICYCLE"};
        SpeechStream stream = new SpeechStream();
        List<long[]> placed = new ArrayList<>();
        List<String> expected = new ArrayList<>();
        for (int i = 0; i < phrases; i++) {
            stream.silence(1.0);
            placed.add(stream.add(Wav.speech(Wav.read(new File(clips, names[i % 2] + ".wav")))));
            expected.add(keywords[i % 2]);
            stream.silence(1.2);
        }
        File raw = File.createTempFile("latency", ".raw");
        raw.deleteOnExit();
        Wav.writeRaw(raw, stream.samples());

        List<Heard> heard = Collections.synchronizedList(new ArrayList<>());
        NativeWakeWordServiceCore core = new NativeWakeWordServiceCore(new WakeWordServiceListener() {
            @Override
            public void onEnumeratedResult(String keyword, String detail, long begin, long end,
                    long position, long size, int detailValue, int detectionType,
                    String decoderId, long tailValue) {
                heard.add(new Heard(keyword, begin, end, System.nanoTime()));
            }
        });
        AudioStream audio = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 20);
        AudioStream metadata = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 16);
        int status = core.nCreateNativeService("velmar.speech.bench", audio, null, metadata,
                manifest, "", "", "", "", keywords, false, false, false, false, false, false,
                false, -19, 320, 0, 9);
        if (status != 0) throw new IllegalStateException("service did not start: " + status);
        String problem = HostControl.attachMicrophone(raw.getPath(), true)[0];
        if (problem != null) throw new IllegalStateException(problem);
        System.out.printf("playing %d wake phrases in real time (%.0f s)...%n", phrases,
                stream.length() / 16000.0);
        core.nSetDetectorEnabled(true);
        while (!HostControl.microphoneFinished()) Thread.sleep(50);
        Thread.sleep(1000);
        core.nSetDetectorEnabled(false);
        core.nDestroyNativeService();
        audio.close();
        metadata.close();

        List<Double> latencies = new ArrayList<>();
        int missed = 0;
        for (int i = 0; i < placed.size(); i++) {
            long[] range = placed.get(i);
            Heard match = null;
            synchronized (heard) {
                for (Heard h : heard) {
                    if (h.keyword().equals(expected.get(i)) && h.begin() <= range[1] + 3200
                            && range[0] - 3200 <= h.end()) {
                        match = h;
                    }
                }
            }
            long delivered = HostControl.deliveryTimeNanos(range[1]);
            if (match == null || delivered < 0) {
                missed++;
                continue;
            }
            latencies.add((match.nanos() - delivered) / 1e6);
        }
        Collections.sort(latencies);
        System.out.printf("heard %d of %d; latency from the end of the phrase to the Java "
                        + "listener: median %.0f ms, 90th percentile %.0f ms, worst %.0f ms, "
                        + "best %.0f ms%n",
                latencies.size(), phrases, percentile(latencies, 0.5), percentile(latencies, 0.9),
                latencies.isEmpty() ? 0 : latencies.get(latencies.size() - 1),
                latencies.isEmpty() ? 0 : latencies.get(0));
        System.exit(missed == 0 ? 0 : 1);
    }

    static double percentile(List<Double> sorted, double fraction) {
        if (sorted.isEmpty()) return 0;
        return sorted.get((int) Math.min(sorted.size() - 1, Math.floor(fraction * sorted.size())));
    }
}
