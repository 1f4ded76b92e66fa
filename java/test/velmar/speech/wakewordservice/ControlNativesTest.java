package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.util.Arrays;
import java.util.function.Supplier;
import org.junit.jupiter.api.Test;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;

// The control natives: their values without a service, and each reaching its operation with its
// arguments and handing back its status.
class ControlNativesTest extends ServiceHarness {
    private static void expectMessage(String message) {
        assertTrue(NativeLog.contains(NativeLog.ERROR, message), message);
    }

    private static boolean called(String op, String args) {
        return Arrays.asList(FakeNorvo.calls(op)).contains(args);
    }

    private static String last(String op) {
        String[] calls = FakeNorvo.calls(op);
        assertTrue(calls.length > 0, op);
        return calls[calls.length - 1];
    }

    // A message without a space is the native's name, logged as called before the service.
    private static Object[] row(Supplier<Object> call, Object value, String... messages) {
        for (int i = 0; i < messages.length; i++) {
            if (!messages[i].contains(" ")) messages[i] += " called before createNativeService.";
        }
        return new Object[] {call, value, messages};
    }

    @Test
    void everyNativeBeforeCreateReturnsItsNotCreatedValueAndSaysWhy() {
        final Object[][] rows = {
                row(() -> core.nSetDetectorEnabled(true), 22, "setDetectorEnabled"),
                row(() -> core.nSetWWDetectionEnabled(true), 22, "setWWDetectionEnabled"),
                row(() -> core.nSetWWDetectionEnabledForLpm(true, 1), 22,
                        "setWWDetectionEnabledForLpm"),
                row(() -> core.nSwitchNorvoModel("/m", new String[] {"A"}), -22, "switchNorvoModel",
                        "Error switch Norvo Model. Error=-22"),
                row(() -> core.nInjectWaveFile("/a.wav", false), false, "injectWaveFile"),
                row(() -> core.nSetNorvoProperty("p", 1), 22, "setNorvoProperty"),
                row(() -> core.nOnCVEvent("{}", 1), 22, "onCVEvent"),
                row(() -> core.nOnSpeakerLocalizationEvent("{}", 1, 2), 22,
                        "onSpeakerLocalizationEvent"),
                row(() -> core.nSetNorvoAcousticProperty("p", 1), 22, "setNorvoAcousticProperty"),
                row(() -> core.nSetAudioEventDetectionMode(true), 22, "setAudioEventDetectionMode"),
                row(() -> core.nSetNttDetectionMode(true, 1), 22, "setNttDetectionMode"),
                row(() -> core.nSwitchNttModel("/n"), -22, "switchNttModel",
                        "Error switching NTT Model. Error=-22"),
                row(() -> core.nSwitchPmaModel("/p"), -22, "switchPmaModel",
                        "Error switch PMA Model. Error=-22"),
                row(() -> core.nEnablePlaybackDetector(), 0),
                row(() -> core.nResetAudioInput(), 22, "resetAudioInput"),
                row(() -> core.nGetAudioPresenceData(), null, "getAudioPresenceData"),
                row(() -> core.nGetInputFrameCount(), 0L, "getInputFrameCount"),
                row(() -> core.nGetInputFrameTime(), 0L, "getInputFrameTime"),
                row(() -> core.nGetPlaybackFrameCount(), 0L, "getPlaybackFrameCount"),
                row(() -> core.nSetFingerprintDatabase("/db"), -22, "setFingerprintDatabase",
                        "Error setting fingerprint database. Error=-22"),
                row(() -> core.nGetNorvoLibraryAttributes(), null, "getNorvoLibraryAttributes"),
                row(() -> core.nGetWakeWordModelSetAttributes(), null, "getModelSetAttributes"),
                row(() -> core.nGetAudioPresenceModelSetAttributes(), null, "getModelSetAttributes"),
                row(() -> core.nGetNaturalTurnTakingModelSetAttributes(), null,
                        "getNaturalTurnTakingModelSetAttributes"),
                row(() -> core.nSetAedStaticModel("/s"), -22, "setAedStaticModel",
                        "Error setting AED static directory path. Error=-22"),
                row(() -> core.nSetAedCustomModel("/c"), -22,
                        "velmar_speech_wakewordservice_WakeWordService_setAedCustomModel called "
                                + "before getNativeService",
                        "Error setting AED Custom Sounds config. Error=-22"),
                row(() -> core.nNotifyTtsState(true), 22, "notifyTtsState"),
        };
        for (Object[] r : rows) {
            NativeLog.start();
            String[] messages = (String[]) r[2];
            assertEquals(r[1], ((Supplier<?>) r[0]).get(), Arrays.toString(messages));
            for (String message : messages) expectMessage(message);
        }
        core.nSetBacklogWatermarks(1, 2);
        core.nSetNorvoPriorities(3, 4);
        RuntimeException thrown = assertThrows(RuntimeException.class,
                () -> core.nSetPushDataToPlaybackDetectorEnabled(true));
        assertEquals("setPushDataToPlaybackDetectorEnabled failure", thrown.getMessage());
        expectMessage("setPushDataToPlaybackDetectorEnabled called before createNativeService.");
    }

    @Test
    void nativesReachTheirOperationsAndReturnTheirStatus() {
        flags[2] = true;  // audio event detection available
        assertEquals(0, create());
        assertEquals(0, core.nSetWWDetectionEnabled(false));
        assertEquals(2, FakeNorvo.calls("NorvoDecoder_SessionEnd").length);
        // Contained, not last: the service's own threads (signal processor, playback states) push
        // client events of their own at any moment.
        assertEquals(0, core.nSetNorvoProperty("Volume", -1));
        assertTrue(called("NorvoDecoder_PushClientEvents", INPUT + "|1|Volume|-1"));
        assertEquals(-22, core.nSetNorvoProperty(null, 1));
        expectMessage("norvo property name is NULL.");
        assertEquals(0, core.nSetNorvoAcousticProperty("Threshold", 4));
        assertTrue(called("NorvoDecoder_PushClientEvents",
                "WakeWordService_audiopresence_decoder|1|Threshold|4"));

        assertEquals(0, core.nSetFingerprintDatabase("/data/fp.db"));
        assertEquals(INPUT + "|/data/fp.db", last("NorvoDecoder_SetFingerprintDatabase"));
        FakeNorvo.setStatus("NorvoDecoder_SetFingerprintDatabase", null, 8);
        assertEquals(8, core.nSetFingerprintDatabase("/data/fp.db"));
        expectMessage("Error setting fingerprint database. Error=8");
        assertEquals(-22, core.nSetFingerprintDatabase(null));
        expectMessage("setFingerprintDatabase cannot get fingerprintDatabasePath information.");

        assertEquals("{\"model_attributes\":[{\"model_id\":\"norvo\",\"keyword\":{\"supported-"
                + "keyword-list\":[\"STOP\",\"CANCEL\",\"SNOOZE\"]}}]}",
                core.nGetWakeWordModelSetAttributes());
        assertNull(core.nGetNaturalTurnTakingModelSetAttributes());  // separate set: absent
        expectMessage("Error getting model set attributes, 3");
        assertTrue(core.nSetPushDataToPlaybackDetectorEnabled(false));  // the previous value
        assertFalse(core.nSetPushDataToPlaybackDetectorEnabled(true));

        // Turn taking: the separate decoder is loaded, reported to Java and configured.
        assertEquals(0, core.nSetNttDetectionMode(true, 2));
        assertEquals("wws_ntt|3", last("NorvoDecoder_SetNttConfiguration"));
        long nowMs = System.nanoTime() / 1000000;  // the monotonic clock, as the client's
        assertEquals(0, core.nOnCVEvent("{\"gaze\":1}", nowMs));
        assertTrue(last("NorvoDecoder_PushNttEvent").startsWith("wws_ntt|0|"));
        assertEquals(-22, core.nOnCVEvent(null, nowMs));
        expectMessage("CV eventJson native string is NULL.");
        FakeNorvo.setStatus("NorvoDecoder_SetNttConfiguration", null, 6);
        assertEquals(6, core.nSetNttDetectionMode(true, 1));
        expectMessage("Error setting NTT detection mode flag. Error=6");
        FakeNorvo.setStatus("NorvoDecoder_SetNttConfiguration", null, 0);
        assertEquals(0, core.nSwitchNttModel("/models/ntt/v2.manifest"));
        assertEquals("WakeWordService_ntt_modelset|/models/ntt/v2.manifest|",
                last("NorvoModelSet_New"));

        // Audio event detection: a decoder, custom sounds, the presence data.
        assertEquals(0, core.nSetAudioEventDetectionMode(true));
        assertEquals(1, FakeNorvo.calls("NorvoDecoder_NewPcmInt16").length);
        assertEquals(0, core.nSetAedCustomModel("/models/aed/custom2.json"));
        assertEquals(0, core.nSetAedCustomModel(null));  // a null path is passed on, not refused
    }

    @Test
    void switchAndInjectReportTheirFailures() {
        flags[1] = true;  // playback suppressed at creation: no notifier
        assertEquals(0, create());
        assertEquals(22, core.nNotifyTtsState(true));
        expectMessage("notifyTtsState: Error setting native tts state. Error=22");
        assertEquals(-22, core.nSwitchNorvoModel(null, wakeWords));
        expectMessage("switchNorvoModel cannot get norvoModelManifestPath infomation.");
        expectMessage("Error switch Norvo Model. Error=-22");
        assertFalse(core.nInjectWaveFile(null, false));
        expectMessage("injectWaveFile cannot get filePath infomation.");
        assertFalse(core.nInjectWaveFile("/no/such/file.wav", false));
        expectMessage("Error injecting wave file. Error=-22");
        // The turn-taking attributes come from the wake-word model when it is unified with NTT.
        String unified = "{\"model_attributes\":[{\"model_id\":\"norvo\",\"keyword\":"
                + "{\"supported-keyword-list\":[\"STOP\"]},\"ntt\":{}}]}";
        FakeNorvo.setModelSetAttributes("WakeWordService_modelset", unified);
        assertEquals(0, core.nSwitchNorvoModel("/models/ww/unified.manifest", wakeWords));
        assertEquals(unified, core.nGetNaturalTurnTakingModelSetAttributes());
    }
}
