package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.ArrayList;
import java.util.List;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import velmar.speech.audio.AudioStream;
import velmar.speech.test.Recorder;
import velmar.speech.test.Recorder.Event;
import velmar.speech.tools.SpeechStream;
import velmar.speech.tools.Wav;

// Java, the bridge, the service and the PocketSphinx engine together: spoken phrases (flite
// clips from the build) injected as WAV files reach the listener with their metadata, and a model
// switch changes which phrase is heard. The engine library is loaded by path
// before the service library, so the service's dependency on libnorvo.so resolves to it instead
// of the fake its own search path names.
class RealEngineEndToEndTest {
    private static final String INPUT = "WakeWordService_input_decoder";
    private static final long WITHIN_100_MS = 1600;
    private static final int NORVO_PS_MANIFEST_UNREADABLE = 6;

    static {
        System.load(System.getenv("WWS_REAL_ENGINE"));
        // The host programs' library: it publishes the signal processor service the service
        // looks up at start.
        System.loadLibrary("wws_host");
    }

    private Recorder recorder;
    private NativeWakeWordServiceCore core;
    private AudioStream audio;
    private AudioStream metadata;
    private final List<File> files = new ArrayList<>();

    @BeforeEach
    void setUp() {
        recorder = new Recorder();
        core = new NativeWakeWordServiceCore(recorder.listener);
        audio = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 20);
        metadata = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 16);
    }

    @AfterEach
    void tearDown() {
        core.nDestroyNativeService();
        audio.close();
        metadata.close();
        for (File file : files) file.delete();
    }

    private int create(String manifest, String... wakeWords) {
        return core.nCreateNativeService("velmar.speech.wakewordservice", audio, null, metadata,
                manifest, "", "", "", "", wakeWords, false, false, false, false, false, false,
                false, -19, 320, 0, 9);
    }

    private static short[] clip(String name) throws IOException {
        return Wav.speech(Wav.read(new File(System.getenv("WWS_CLIPS_DIR"), name + ".wav")));
    }

    private File wav(SpeechStream stream) throws IOException {
        File file = File.createTempFile("utterance", ".wav");
        files.add(file);
        Wav.write(file, stream.samples());
        return file;
    }

    // Injects the stream and waits until the service has counted all of it and results came.
    private List<Event> injectAndCollect(SpeechStream stream, int expected) throws Exception {
        long before = core.nGetInputFrameCount();
        assertTrue(core.nInjectWaveFile(wav(stream).getPath(), false));
        long deadline = System.currentTimeMillis() + 20000;
        while (System.currentTimeMillis() < deadline
                && (core.nGetInputFrameCount() - before < stream.length()
                        || recorder.named("enumerated").size() < expected)) {
            Thread.sleep(20);
        }
        assertEquals(stream.length(), core.nGetInputFrameCount() - before);
        return recorder.named("enumerated");
    }

    private static List<String> keywords(List<Event> events) {
        List<String> names = new ArrayList<>();
        for (Event e : events) names.add((String) e.args[0]);
        return names;
    }

    @Test
    void aModelSwitchBringsInTheNewManifestsPhraseAndDropsTheOldOnes() throws Exception {
        assertEquals(0, create(System.getenv("WWS_DEFAULT_MANIFEST"), "PURPLE_ELEPHANT",
                "ORANGE_BICYCLE"));
        SpeechStream stream = new SpeechStream();
        stream.silence(0.6);
        stream.add(clip("purple_elephant"));
        stream.silence(0.8);
        long[] lantern = stream.add(clip("magic_lantern"));
        stream.silence(1.2);
        // The real engine answered, not the fake that the library's own search path finds.
        assertTrue(core.nGetNorvoLibraryAttributes().startsWith(
                "{\"engine\":\"norvo-pocketsphinx\""));
        List<Event> first = injectAndCollect(stream, 1);
        assertEquals(List.of("PURPLE_ELEPHANT"), keywords(first));
        // Its metadata, read back from the metadata stream, names the same sample range (the
        // engine's own tests check the range to the sample).
        Object[] a = first.get(0).args;
        assertEquals(1, a[7]);  // the engine's accepted detection, as Java numbers it
        assertEquals(INPUT, a[8]);
        String blob = new String(metadata.read((Long) a[4], (int) (long) (Long) a[5]),
                StandardCharsets.UTF_8);
        assertTrue(blob.startsWith("{\"keyword\":\"PURPLE_ELEPHANT\",\"phrase\":\"purple elephant\""),
                blob);
        assertTrue(blob.contains("\"samples\":[" + a[2] + "," + a[3] + "]"), blob);
        assertNotEquals(Thread.currentThread().getId(), first.get(0).threadId);

        File manifest = File.createTempFile("lantern", ".manifest");
        files.add(manifest);
        Files.writeString(manifest.toPath(),
                "acoustic-model /usr/share/pocketsphinx/model/en-us/en-us\n"
                        + "dictionary /usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict\n"
                        + "wake MAGIC_LANTERN 1e-20 magic lantern\n");
        // The new model set is not unified with turn taking, so the switch also sets up the
        // separate turn-taking decoder and returns its status: this engine has no such model at
        // the default path on a host (6, manifest unreadable). The wake-word model is in place.
        assertEquals(NORVO_PS_MANIFEST_UNREADABLE,
                core.nSwitchNorvoModel(manifest.getPath(), new String[] {"MAGIC_LANTERN"}));
        assertTrue(core.nGetWakeWordModelSetAttributes().contains("\"wake-words\":[\"MAGIC_LANTERN\"]"));

        long base = core.nGetInputFrameCount();
        List<Event> heard = injectAndCollect(stream, 2);
        assertEquals(List.of("PURPLE_ELEPHANT", "MAGIC_LANTERN"), keywords(heard));
        a = heard.get(1).args;
        assertEquals(base + lantern[0], (long) a[2], WITHIN_100_MS);
        // This voice draws out the final "n" well past where the recognizer ends the phrase.
        assertTrue((long) a[3] > base + lantern[0] && (long) a[3] <= base + lantern[1] + WITHIN_100_MS,
                "end " + a[3] + " for a phrase placed at " + (base + lantern[0]) + "-"
                        + (base + lantern[1]));
    }
}
