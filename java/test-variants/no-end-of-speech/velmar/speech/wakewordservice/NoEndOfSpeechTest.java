package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.io.ByteArrayOutputStream;
import java.io.PrintStream;
import java.util.List;
import org.junit.jupiter.api.Test;
import velmar.speech.audio.AudioStream;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;
import velmar.speech.test.Recorder;

// Runs in a JVM of its own, whose NativeWakeWordServiceCore lacks handleNttEndOfSpeechResult.
class NoEndOfSpeechTest {
    @Test
    void libraryLoadsAndEndOfSpeechIsOnlyWarnedAbout() throws Exception {
        NativeLog.start();
        PrintStream originalErr = System.err;
        ByteArrayOutputStream err = new ByteArrayOutputStream();
        System.setErr(new PrintStream(err, true));
        Recorder recorder = new Recorder();
        NativeWakeWordServiceCore core;
        try {
            core = new NativeWakeWordServiceCore(recorder);  // loads the library now
        } finally {
            System.setErr(originalErr);
        }
        assertEquals(List.of("Clearing exception. Unable to find method: "
                        + "handleNttEndOfSpeechResult (J)V"),
                NativeLog.messages(NativeLog.WARN, "WakeWordService_JNI"));
        // The pending NoSuchMethodError was described (and cleared), not left behind.
        assertTrue(err.toString().contains("java.lang.NoSuchMethodError"), err.toString());
        assertTrue(err.toString().contains("handleNttEndOfSpeechResult"), err.toString());
        assertEquals(List.of(), NativeLog.messages(NativeLog.ERROR, "WakeWordService_JNI"));

        FakeNorvo.reset();
        try (AudioStream audio = new AudioStream(1, 16000, 1, 1 << 16);
                AudioStream metadata = new AudioStream(1, 16000, 1, 1 << 16)) {
            assertEquals(0, core.nCreateNativeService("pkg", audio, null, metadata, "/m", "/a",
                    null, null, null, new String[] {"HEYVELMAR"}, false, false, false, false,
                    false, true, false, 0, 320, 0, 9));
            assertEquals(0, FakeNorvo.fire("endOfSpeech", null, new double[] {5}, null));
            assertTrue(NativeLog.contains(NativeLog.WARN, "Can not surface NttEndOfSpeech to jni"));
            assertEquals(0, recorder.named("endOfSpeech").size());
            // Everything else still works.
            assertEquals(0, FakeNorvo.fire("enumerated", new String[] {
                    "WakeWordService_input_decoder", "HEYVELMAR", ""}, new double[] {1, 2}, null));
            assertEquals(1, recorder.await("enumerated", 1).size());
            assertTrue(core.nDestroyNativeService());
        }
        NativeLog.stop();
    }
}
