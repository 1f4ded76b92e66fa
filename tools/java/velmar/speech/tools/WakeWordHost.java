package velmar.speech.tools;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import velmar.speech.audio.AudioStream;
import velmar.speech.wakewordservice.NativeWakeWordServiceCore;
import velmar.speech.wakewordservice.WakeWordServiceListener;

/**
 * The main job on a host: creates the wake-word service through its Java natives on the engine
 * library given with --engine, feeds it speech, and prints every detection as Java receives it.
 *
 * <pre>
 * WakeWordHost --engine libnorvo.so --manifest M [--wav FILE | --live (-|FILE) | --mic DEVICE]
 *              [--seconds S] [--wake-words A,B] [--log FILE] [--verbose]
 * </pre>
 *
 * --wav injects a 16 kHz mono WAV file in real time; --live plays 16 kHz mono 16-bit PCM (a WAV
 * stream, or raw) from standard input ("-") or a file on the microphone, and --mic captures from
 * an ALSA device through the host's AudioRecord; both switch detection on, as a device does, and
 * run until the input ends, --seconds pass, or Ctrl-C (which still prints the summary).
 * The wake words default to every "wake" line of the manifest. Library log lines go to the log
 * file (and to stderr with --verbose). Exits 0 when the run went through, 1 when the input or the
 * model could not be used (one line on stderr says why), 2 on a usage error.
 */
public final class WakeWordHost {
    private static final String USAGE = "usage: WakeWordHost --engine LIB --manifest FILE "
            + "[--wav FILE | --live -|FILE | --mic DEVICE] [--seconds S] [--wake-words A,B] "
            + "[--log FILE] [--verbose]";
    private static final String INPUT_DECODER = "WakeWordService_input_decoder";

    private String mEngine;
    private String mManifest;
    private String mWav;
    private String mLive;
    private String mMic;
    private double mSeconds = -1;
    private boolean mSummaryPrinted;  // guarded by this
    private boolean mListening;       // the input is playing; guarded by this
    private String[] mWakeWords;
    private String mLog = "wakeword-host.log";
    private boolean mVerbose;

    private AudioStream mMetadata;
    private Map<String, String> mPhrases = new LinkedHashMap<>();
    private final AtomicInteger mWakeWordsHeard = new AtomicInteger();
    private final AtomicInteger mCommandsHeard = new AtomicInteger();

    public static void main(String[] args) {
        int status;
        try {
            status = new WakeWordHost().run(args);
        } catch (UsageException e) {
            System.err.println("wakeword: " + e.getMessage());
            System.err.println(USAGE);
            status = 2;
        } catch (FailureException e) {
            System.err.println("wakeword: " + e.getMessage());
            status = 1;
        }
        System.exit(status);
    }

    private static final class UsageException extends Exception {
        private static final long serialVersionUID = 1L;

        UsageException(String message) {
            super(message);
        }
    }

    private static final class FailureException extends Exception {
        private static final long serialVersionUID = 1L;

        FailureException(String message) {
            super(message);
        }
    }

    private void parse(String[] args) throws UsageException {
        for (int i = 0; i < args.length; i++) {
            String arg = args[i];
            if (arg.equals("--verbose")) {
                mVerbose = true;
                continue;
            }
            if (i + 1 >= args.length) throw new UsageException(arg + " needs a value");
            String value = args[++i];
            switch (arg) {
                case "--engine": mEngine = value; break;
                case "--manifest": mManifest = value; break;
                case "--wav": mWav = value; break;
                case "--live": mLive = value; break;
                case "--mic": mMic = value; break;
                case "--seconds": mSeconds = seconds(value); break;
                case "--wake-words": mWakeWords = value.split(","); break;
                case "--log": mLog = value; break;
                default: throw new UsageException("unknown option " + arg);
            }
        }
        if (mEngine == null || mManifest == null) {
            throw new UsageException("--engine and --manifest are required");
        }
        int inputs = (mWav == null ? 0 : 1) + (mLive == null ? 0 : 1) + (mMic == null ? 0 : 1);
        if (inputs != 1) throw new UsageException("give one of --wav, --live and --mic");
    }

    private static double seconds(String value) throws UsageException {
        try {
            double seconds = Double.parseDouble(value);
            if (seconds > 0) return seconds;
        } catch (NumberFormatException e) {
            // said below
        }
        throw new UsageException("--seconds needs a positive number, not " + value);
    }

    private int run(String[] args) throws UsageException, FailureException {
        parse(args);
        // The engine library first: the service library's dependency on libnorvo.so is then
        // satisfied by it, whatever the service library's own search path says.
        File engine = new File(mEngine).getAbsoluteFile();
        if (!engine.canRead()) throw new FailureException("cannot read engine library " + engine);
        System.load(engine.getPath());
        if (!HostControl.redirectLog(mLog, mVerbose)) {
            throw new FailureException("cannot write log file " + mLog);
        }
        short[] wav = null;
        if (mWav != null) {
            try {
                wav = Wav.read(new File(mWav));
                long promised = Wav.framesPromised(new File(mWav));
                if (promised > wav.length) {
                    System.err.printf("wakeword: %s is cut short: its header promises %.1f s, "
                                    + "%.1f s are there; injecting what there is%n", mWav,
                            promised / (double) Wav.RATE, wav.length / (double) Wav.RATE);
                }
            } catch (IOException e) {
                throw new FailureException(e.getMessage());
            }
        }
        if (mWakeWords == null) mWakeWords = wakeWordsOf(mManifest);

        AudioStream audio = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, Wav.RATE, 1, 1 << 20);
        mMetadata = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, Wav.RATE, 1, 1 << 16);
        NativeWakeWordServiceCore core = new NativeWakeWordServiceCore(new Printer());
        int status = core.nCreateNativeService("velmar.speech.tools", audio, null, mMetadata,
                mManifest, "", "", "", "", mWakeWords, false, false, false, false, false, false,
                false, -19, 320, 0, 9);
        try {
            if (status != 0) {
                throw new FailureException("the service did not start (status " + status
                        + "); see " + mLog);
            }
            checkModel(core);
            // Ctrl-C ends a live run: the JVM runs this hook and exits with 130.
            Runtime.getRuntime().addShutdownHook(new Thread(() -> printSummary(" (interrupted)")));
            setListening(true);
            if (wav != null) {
                inject(core, wav);
            } else {
                listen(core);
            }
            printSummary("");
            return 0;
        } finally {
            setListening(false);
            core.nDestroyNativeService();
            audio.close();
            mMetadata.close();
        }
    }

    private synchronized void setListening(boolean listening) {
        mListening = listening;
    }

    /** The last line, once: at the end of the input, or when Ctrl-C cuts it short. */
    private synchronized void printSummary(String how) {
        if (mSummaryPrinted || !mListening) return;
        mSummaryPrinted = true;
        System.out.printf("done      %d wake word%s and %d local command%s heard%s; service and "
                        + "engine log: %s%n",
                mWakeWordsHeard.get(), mWakeWordsHeard.get() == 1 ? "" : "s",
                mCommandsHeard.get(), mCommandsHeard.get() == 1 ? "" : "s", how, mLog);
        System.out.flush();
    }

    /** The names of the manifest's "wake" lines. */
    private static String[] wakeWordsOf(String manifest) throws FailureException {
        List<String> names = new ArrayList<>();
        try {
            for (String line : Files.readAllLines(new File(manifest).toPath(),
                         StandardCharsets.UTF_8)) {
                String[] fields = line.trim().split("\\s+");
                if (fields.length > 1 && fields[0].equals("wake")) names.add(fields[1]);
            }
        } catch (IOException e) {
            throw new FailureException("cannot read manifest " + manifest);
        }
        return names.toArray(new String[0]);
    }

    /** Prints the engine and model, or fails with the engine's own reason when there is none. */
    private void checkModel(NativeWakeWordServiceCore core) throws FailureException {
        for (String error : HostControl.errors()) {
            // The engine says why a model set or decoder could not be made, with its status.
            if (error.contains(" not created (status ")) throw new FailureException(error);
        }
        String attributes = core.nGetWakeWordModelSetAttributes();
        String library = core.nGetNorvoLibraryAttributes();
        if (attributes == null || attributes.isEmpty()) {
            throw new FailureException("no wake-word model; see " + mLog);
        }
        Matcher phrases = Pattern.compile("\"phrases\":\\{([^}]*)\\}").matcher(attributes);
        if (phrases.find()) {
            Matcher pair = Pattern.compile("\"([^\"]+)\":\"([^\"]*)\"").matcher(phrases.group(1));
            while (pair.find()) mPhrases.put(pair.group(1), pair.group(2));
        }
        Matcher commands = Pattern.compile("\"local-commands\":\\[([^\\]]*)\\]").matcher(attributes);
        System.out.println("engine    " + field(library, "engine") + " " + field(library, "version")
                + " (" + field(library, "recognizer") + "), loaded from " + mEngine);
        System.out.println("model     " + mManifest);
        StringBuilder words = new StringBuilder();
        for (String word : mWakeWords) {
            words.append(words.length() == 0 ? "" : ", ").append(word);
            if (mPhrases.containsKey(word)) words.append(" (\"").append(mPhrases.get(word)).append("\")");
        }
        System.out.println("          wake words " + words + "; local commands "
                + (commands.find() ? commands.group(1).replace("\"", "").replace(",", ", ") : "none"));
    }

    private static String field(String json, String name) {
        Matcher m = Pattern.compile("\"" + name + "\":\"([^\"]*)\"").matcher(json == null ? "" : json);
        return m.find() ? m.group(1) : "?";
    }

    private void inject(NativeWakeWordServiceCore core, short[] wav) throws FailureException {
        System.out.printf("input     %s, %.1f s, injected in real time%n", mWav,
                wav.length / (double) Wav.RATE);
        long before = core.nGetInputFrameCount();
        if (!core.nInjectWaveFile(new File(mWav).getAbsolutePath(), false)) {
            throw new FailureException("the service refused to inject " + mWav + "; see " + mLog);
        }
        long deadline = System.currentTimeMillis() + wav.length * 2000L / Wav.RATE + 5000;
        while (core.nGetInputFrameCount() - before < wav.length) {
            if (System.currentTimeMillis() > deadline) {
                throw new FailureException("the injection did not finish; see " + mLog);
            }
            pause(20);
        }
        finish(core);
    }

    private void listen(NativeWakeWordServiceCore core) throws FailureException {
        String source;
        if (mMic != null) {
            String problem = HostControl.attachAlsaMicrophone(mMic);
            if (problem != null) throw new FailureException(problem);
            source = "ALSA device " + mMic + " through the service's AudioRecord";
        } else {
            String[] input = HostControl.attachMicrophone(mLive, false);
            if (input[0] != null) throw new FailureException(input[0]);
            if (input[2] != null) System.err.println("wakeword: warning: " + input[2]);
            source = (mLive.equals("-") ? "standard input" : mLive) + ", " + input[1];
        }
        int status = core.nSetDetectorEnabled(true);
        if (status != 0) {
            throw new FailureException("detection did not start (status " + status + "); see "
                    + mLog);
        }
        boolean endless = mMic != null || mLive.equals("-");
        System.out.println("input     " + source + ", live; say one of the wake words"
                + (mSeconds > 0 ? String.format(" (for %.0f s)", mSeconds)
                                : endless ? " (Ctrl-C to stop)" : ""));
        long end = mSeconds > 0 ? System.nanoTime() + (long) (mSeconds * 1e9) : Long.MAX_VALUE;
        while (System.nanoTime() < end && (mMic != null || !HostControl.microphoneFinished())) {
            for (String event : HostControl.microphoneEvents()) {
                // The service notices a recording that ended and starts a new one, which opens
                // the device again: say both, as they happen.
                System.out.println("input     " + event
                        + (event.contains(" stopped: ") ? "; the service restarts the recording"
                                                        : ""));
            }
            pause(50);
        }
        core.nSetDetectorEnabled(false);
        finish(core);
    }

    /** Ends the detection session, so that the engine decodes what it still holds, and waits. */
    private void finish(NativeWakeWordServiceCore core) {
        core.nSetWWDetectionEnabled(false);
        pause(500);
    }

    private static void pause(long millis) {
        try {
            Thread.sleep(millis);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Prints each result as Java receives it, on the engine's thread. */
    private final class Printer implements WakeWordServiceListener {
        @Override
        public void onEnumeratedResult(String keyword, String detail, long begin, long end,
                long position, long size, int detailValue, int detectionType, String decoderId,
                long tailValue) {
            mWakeWordsHeard.incrementAndGet();
            print("wake word", keyword, detail, begin, end, position, size, detectionType,
                    decoderId);
        }

        @Override
        public void onLocalCommandResult(String keyword, String detail, long begin, long end,
                long position, long size, int detailValue, int detectionType, String decoderId) {
            mCommandsHeard.incrementAndGet();
            print("local command", keyword, detail, begin, end, position, size, detectionType,
                    decoderId);
        }

        private void print(String kind, String keyword, String detail, long begin, long end,
                long position, long size, int detectionType, String decoderId) {
            byte[] blob = size > 0 ? mMetadata.read(position, (int) size) : new byte[0];
            StringBuilder line = new StringBuilder();
            // Java numbers the engine's detection types from 1: 1 accepted, 2 and 3 near misses.
            line.append(String.format("heard     %5.2f-%5.2f s  %s \"%s\"  %s, type %d (%s), "
                            + "samples %d-%d%s%n", begin / (double) Wav.RATE,
                    (end + 1) / (double) Wav.RATE, keyword, detail, kind, detectionType,
                    detectionType == 1 ? "accepted" : "near miss", begin, end,
                    decoderId.equals(INPUT_DECODER) ? "" : ", decoder " + decoderId));
            line.append("          metadata ").append(new String(blob, StandardCharsets.UTF_8));
            System.out.println(line);
        }
    }
}
