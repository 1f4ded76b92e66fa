package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import org.junit.jupiter.api.Test;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;

// Library load, and creating and destroying the native service from Java arguments.
class LoadAndCreateTest extends ServiceHarness {
    @Test
    void loadReturnsJni14WithoutAnErrorOrAWarning() {
        NativeLog.start();  // only this load's lines, whether or not the class loaded just now
        assertEquals(0x00010004, FakeNorvo.callJniOnLoad());
        assertEquals(List.of(), NativeLog.messages(NativeLog.ERROR, "WakeWordService_JNI"));
        assertEquals(List.of(), NativeLog.messages(NativeLog.WARN, "WakeWordService_JNI"));
    }

    @Test
    void createMapsEveryArgumentAndDestroyUndoesIt() {
        flags = new boolean[] {true, false, true, false, true, false, true};
        numbers = new int[] {-7, 480, -120, 11};
        wakeWords = new String[] {"HEYVELMAR", "COMPUTER"};
        assertEquals(0, create(audio, oneMic, metadata));
        assertArrayEquals(new String[] {"-120"}, FakeNorvo.calls("NorvoApi_SetLocalTimeOffset"));
        assertFalse(oneMic.canOpenWriter(), "the one-mic stream is written while the service lives");
        // Each manifest reaches its own model set: the wake-word model, then the preloaded
        // turn-taking model, then audio event detection (available).
        assertArrayEquals(new String[] {"WakeWordService_modelset|/models/ww/norvo.manifest|",
                "WakeWordService_ntt_modelset|/models/ntt/norvo.manifest|",
                "AudioPresenceNorvo_modelset|/models/aed/static.manifest|"},
                FakeNorvo.calls("NorvoModelSet_New"));
        assertTrue(FakeNorvo.calls("NorvoDecoder_NewSpotterAudioDecoder")[0].endsWith(
                "|{\"keyword\":{\"enabled-keyword-list\":[\"STOP\",\"CANCEL\",\"SNOOZE\","
                        + "\"HEYVELMAR\",\"COMPUTER\"]}}"));
        assertFalse(metadata.canOpenWriter(), "the metadata writer is open while the service lives");
        assertEquals(-38, create());
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "createNativeService: native service already created"));
        assertTrue(core.nDestroyNativeService());
        assertNoServiceLeft();
    }

    @Test
    void optionalArgumentsMayBeNull() {
        ntt = null;
        pma = null;
        aedCustom = null;
        wakeWords = null;
        assertEquals(0, create(audio, null, metadata));
        assertTrue(NativeLog.contains(NativeLog.ERROR, "OneMicAudioStream is not provided"));
        assertTrue(FakeNorvo.calls("NorvoDecoder_NewSpotterAudioDecoder")[0].endsWith("|{}"));
        assertTrue(core.nDestroyNativeService());
        wakeWords = new String[0];
        assertEquals(0, create());
        assertTrue(NativeLog.contains(NativeLog.INFO, "No active wake words provided."));
    }

    private void assertNoServiceLeft() {
        assertEquals(0, nativeInstance());
        assertTrue(metadata.canOpenWriter(), "no metadata writer left open");
        assertFalse(core.nDestroyNativeService());
    }

    // Each refusal: its status and message, and no service left behind.
    private void refused(int expected, int status, String message) {
        assertEquals(expected, status, message);
        if (message != null) assertTrue(NativeLog.contains(NativeLog.ERROR, message), message);
        assertNoServiceLeft();
    }

    @Test
    void whatCannotBeCreatedLeavesNothingBehind() {
        refused(-22, create(null, null, metadata),
                "Unable to create native wakewordservice when AudioStream is null");
        refused(-22, create(audio, null, null), null);
        assertEquals(0, FakeNorvo.calls("NorvoApi_SetLoggingCallback").length);
        manifest = null;
        refused(-22, create(), "Unable to get norvoModelManifestPath infomation.");
        manifest = "/m";
        aedStatic = null;
        refused(-22, create(), "Unable to get aedStaticModelManifestPath information.");
        aedStatic = "/a";
        packageName = null;
        refused(-22, create(), "Unable to get package name.");
        packageName = "p";
        FakeNorvo.setStatus("NorvoApi_SetLoggingCallback", 9);
        refused(9, create(), "Error initializing WakeWordService. Error=9");
        // A later create builds a fresh service.
        FakeNorvo.setStatus("NorvoApi_SetLoggingCallback", 0);
        assertEquals(0, create());
        assertNotEquals(0, nativeInstance());
    }
}
