package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.lang.reflect.Array;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.Arrays;
import java.util.List;
import java.util.Map;
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

    // The natives whose value or messages without a service are not the rule's (see below);
    // a message without a space is a name, logged as called before the service.
    private static final Map<String, List<Object>> NOT_THE_RULE = Map.of(
            "nSwitchNorvoModel", List.of(-22, "switchNorvoModel", "Error switch Norvo Model. Error=-22"),
            "nSwitchNttModel", List.of(-22, "switchNttModel", "Error switching NTT Model. Error=-22"),
            "nSwitchPmaModel", List.of(-22, "switchPmaModel", "Error switch PMA Model. Error=-22"),
            "nSetFingerprintDatabase", List.of(-22, "setFingerprintDatabase",
                    "Error setting fingerprint database. Error=-22"),
            "nSetAedStaticModel", List.of(-22, "setAedStaticModel",
                    "Error setting AED static directory path. Error=-22"),
            "nSetAedCustomModel", List.of(-22, "velmar_speech_wakewordservice_WakeWordService_"
                    + "setAedCustomModel called before getNativeService",
                    "Error setting AED Custom Sounds config. Error=-22"),
            "nEnablePlaybackDetector", List.of(0),
            "nGetWakeWordModelSetAttributes", Arrays.asList(null, "getModelSetAttributes"),
            "nGetAudioPresenceModelSetAttributes", Arrays.asList(null, "getModelSetAttributes"),
            "nDestroyNativeService", List.of(false,
                    "destroyNativeService: native service not created yet"));

    // Every native but create, called with zero arguments: by the rule an int native returns 22,
    // a boolean false, a long 0, a String null, each after "<name without the n> called before
    // createNativeService."; a void native says nothing.
    @Test
    void everyNativeBeforeCreateReturnsItsNotCreatedValueAndSaysWhy() throws Exception {
        for (Method m : NativeWakeWordServiceCore.class.getDeclaredMethods()) {
            String name = m.getName();
            if (!Modifier.isNative(m.getModifiers()) || name.equals("nCreateNativeService")
                    || name.equals("nSetPushDataToPlaybackDetectorEnabled")) {
                continue;
            }
            Class<?> type = m.getReturnType();
            List<Object> expected = NOT_THE_RULE.getOrDefault(name, type == void.class
                    ? Arrays.asList((Object) null)
                    : Arrays.asList(type == int.class ? (Object) 22
                                    : type == String.class ? null : Array.get(Array.newInstance(type, 1), 0),
                            Character.toLowerCase(name.charAt(1)) + name.substring(2)));
            Object[] args = new Object[m.getParameterCount()];
            for (int i = 0; i < args.length; i++) {
                Class<?> p = m.getParameterTypes()[i];
                args[i] = p.isPrimitive() ? Array.get(Array.newInstance(p, 1), 0) : null;
            }
            NativeLog.start();
            assertEquals(expected.get(0), m.invoke(core, args), name);
            for (Object message : expected.subList(1, expected.size())) {
                expectMessage(message + (((String) message).contains(" ")
                        ? "" : " called before createNativeService."));
            }
        }
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

        FakeNorvo.setStatus("NorvoDecoder_SetFingerprintDatabase", 8);
        assertEquals(8, core.nSetFingerprintDatabase("/data/fp.db"));
        assertTrue(last("NorvoDecoder_SetFingerprintDatabase").endsWith("|/data/fp.db"));
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
        FakeNorvo.setStatus("NorvoDecoder_SetNttConfiguration", 6);
        assertEquals(6, core.nSetNttDetectionMode(true, 1));
        expectMessage("Error setting NTT detection mode flag. Error=6");
        FakeNorvo.setStatus("NorvoDecoder_SetNttConfiguration", 0);
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
