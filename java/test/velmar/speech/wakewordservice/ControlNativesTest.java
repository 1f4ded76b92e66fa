package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import org.junit.jupiter.api.Test;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;

/** The control natives: their values without a service, and each reaching its operation. */
class ControlNativesTest extends ServiceHarness {
    private static void expectMessage(String message) {
        assertTrue(NativeLog.contains(NativeLog.ERROR, message), message);
    }

    @Test
    void everyNativeBeforeCreateReturnsItsNotCreatedValue() {
        assertEquals(22, core.nSetWWDetectionEnabled(true));
        expectMessage("setWWDetectionEnabled called before createNativeService.");
        assertEquals(22, core.nSetWWDetectionEnabledForLpm(true, 1));
        expectMessage("setWWDetectionEnabledForLpm called before createNativeService.");
        assertEquals(-22, core.nSwitchNorvoModel("/m", new String[] {"A"}));
        expectMessage("switchNorvoModel called before createNativeService.");
        expectMessage("Error switch Norvo Model. Error=-22");
        assertFalse(core.nInjectWaveFile("/a.wav", false));
        expectMessage("injectWaveFile called before createNativeService.");
        assertEquals(22, core.nSetNorvoProperty("p", 1));
        expectMessage("setNorvoProperty called before createNativeService.");
        assertEquals(22, core.nOnCVEvent("{}", 1));
        expectMessage("onCVEvent called before createNativeService.");
        assertEquals(22, core.nOnSpeakerLocalizationEvent("{}", 1, 2));
        expectMessage("onSpeakerLocalizationEvent called before createNativeService.");
        assertEquals(22, core.nSetNorvoAcousticProperty("p", 1));
        expectMessage("setNorvoAcousticProperty called before createNativeService.");
        assertEquals(22, core.nSetAudioEventDetectionMode(true));
        expectMessage("setAudioEventDetectionMode called before createNativeService.");
        assertEquals(22, core.nSetNttDetectionMode(true, 1));
        expectMessage("setNttDetectionMode called before createNativeService.");
        assertEquals(-22, core.nSwitchNttModel("/n"));
        expectMessage("switchNttModel called before createNativeService.");
        expectMessage("Error switching NTT Model. Error=-22");
        assertEquals(-22, core.nSwitchPmaModel("/p"));
        expectMessage("switchPmaModel called before createNativeService.");
        expectMessage("Error switch PMA Model. Error=-22");
        assertEquals(0, core.nEnablePlaybackDetector());
        assertEquals(22, core.nResetAudioInput());
        expectMessage("resetAudioInput called before createNativeService.");
        assertNull(core.nGetAudioPresenceData());
        expectMessage("getAudioPresenceData called before createNativeService.");
        assertEquals(0, core.nGetInputFrameCount());
        expectMessage("getInputFrameCount called before createNativeService.");
        assertEquals(0, core.nGetInputFrameTime());
        expectMessage("getInputFrameTime called before createNativeService.");
        assertEquals(0, core.nGetPlaybackFrameCount());
        expectMessage("getPlaybackFrameCount called before createNativeService.");
        assertEquals(-22, core.nSetFingerprintDatabase("/db"));
        expectMessage("setFingerprintDatabase called before createNativeService.");
        expectMessage("Error setting fingerprint database. Error=-22");
        assertNull(core.nGetNorvoLibraryAttributes());
        expectMessage("getNorvoLibraryAttributes called before createNativeService.");
        assertNull(core.nGetWakeWordModelSetAttributes());
        assertNull(core.nGetAudioPresenceModelSetAttributes());
        expectMessage("getModelSetAttributes called before createNativeService.");
        assertNull(core.nGetNaturalTurnTakingModelSetAttributes());
        expectMessage("getNaturalTurnTakingModelSetAttributes called before createNativeService.");
        assertEquals(-22, core.nSetAedStaticModel("/s"));
        expectMessage("setAedStaticModel called before createNativeService.");
        expectMessage("Error setting AED static directory path. Error=-22");
        assertEquals(-22, core.nSetAedCustomModel("/c"));
        expectMessage("velmar_speech_wakewordservice_WakeWordService_setAedCustomModel called "
                + "before getNativeService");
        expectMessage("Error setting AED Custom Sounds config. Error=-22");
        core.nSetBacklogWatermarks(1, 2);
        core.nSetNorvoPriorities(3, 4);
        assertEquals(22, core.nNotifyTtsState(true));
        expectMessage("notifyTtsState called before createNativeService.");
        RuntimeException thrown = assertThrows(RuntimeException.class,
                () -> core.nSetPushDataToPlaybackDetectorEnabled(true));
        assertEquals("setPushDataToPlaybackDetectorEnabled failure", thrown.getMessage());
        expectMessage("setPushDataToPlaybackDetectorEnabled called before createNativeService.");
    }

    @Test
    void nativesReachTheirOperations() {
        assertEquals(0, create());
        assertEquals(0, core.nSetWWDetectionEnabled(false));
        assertEquals(2, FakeNorvo.calls("NorvoDecoder_SessionEnd").length);
        assertEquals(0, core.nSetWWDetectionEnabledForLpm(false, 3));

        assertEquals(0, core.nSetNorvoProperty("Volume", -1));
        assertTrue(NativeLog.contains(NativeLog.DEBUG, "Setting norvo property (JNI): Volume=-1"));
        // Contained, not last: the service's own threads (signal processor, playback states) push
        // client events of their own at any moment.
        String[] events = FakeNorvo.calls("NorvoDecoder_PushClientEvents");
        assertTrue(java.util.Arrays.asList(events).contains(INPUT + "|1|Volume|-1"));
        assertEquals(-22, core.nSetNorvoProperty(null, 1));
        assertTrue(NativeLog.contains(NativeLog.ERROR, "norvo property name is NULL."));
        assertEquals(0, core.nSetNorvoAcousticProperty("Threshold", 4));
        events = FakeNorvo.calls("NorvoDecoder_PushClientEvents");
        assertTrue(java.util.Arrays.asList(events)
                .contains("WakeWordService_audiopresence_decoder|1|Threshold|4"));

        assertEquals(0, core.nSetFingerprintDatabase("/data/fp.db"));
        assertArrayEquals(new String[] {INPUT + "|/data/fp.db"},
                FakeNorvo.calls("NorvoDecoder_SetFingerprintDatabase"));
        FakeNorvo.setStatus("NorvoDecoder_SetFingerprintDatabase", null, 8);
        assertEquals(8, core.nSetFingerprintDatabase("/data/fp.db"));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "Error setting fingerprint database. Error=8"));
        assertEquals(-22, core.nSetFingerprintDatabase(null));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "setFingerprintDatabase cannot get fingerprintDatabasePath information."));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "Error setting fingerprint database. Error=-22"));

        assertNotNull(core.nGetNorvoLibraryAttributes());
        assertEquals("{\"model_attributes\":[{\"model_id\":\"norvo\",\"keyword\":{\"supported-"
                + "keyword-list\":[\"STOP\",\"CANCEL\",\"SNOOZE\"]}}]}",
                core.nGetWakeWordModelSetAttributes());
        assertNull(core.nGetAudioPresenceModelSetAttributes());  // no such model set here
        assertTrue(NativeLog.contains(NativeLog.ERROR, "Error getting model set attributes, 3"));

        assertTrue(core.nSetPushDataToPlaybackDetectorEnabled(false));  // the previous value
        assertFalse(core.nSetPushDataToPlaybackDetectorEnabled(true));
        assertEquals(0, core.nNotifyTtsState(true));
        events = FakeNorvo.calls("NorvoDecoder_PushClientEvents");
        assertTrue(java.util.Arrays.asList(events).contains(INPUT + "|1|TTSPlayerState|1"));
        assertEquals(0, core.nResetAudioInput());
        assertEquals(0, core.nGetInputFrameCount());
        assertTrue(core.nGetInputFrameTime() > 0);
        assertEquals(0, core.nGetPlaybackFrameCount());
    }

    private Object lastArg(String kind) {
        java.util.List<velmar.speech.test.Recorder.Event> events = recorder.named(kind);
        assertFalse(events.isEmpty(), kind);
        return events.get(events.size() - 1).args[0];
    }

    private static String last(String[] calls) {
        assertTrue(calls.length > 0);
        return calls[calls.length - 1];
    }

    @Test
    void auxiliaryDecoderNativesReachTheirOperations() {
        flags[2] = true;  // audio event detection available
        assertEquals(0, create());

        // Turn taking: the separate decoder is loaded, reported to Java and configured.
        assertEquals(0, core.nSetNttDetectionMode(true, 2));
        assertEquals(true, lastArg("nttDecoder"));
        assertEquals("wws_ntt|3", last(FakeNorvo.calls("NorvoDecoder_SetNttConfiguration")));
        long nowMs = System.nanoTime() / 1000000;  // the monotonic clock, as the client's
        assertEquals(0, core.nOnCVEvent("{\"gaze\":1}", nowMs));
        assertTrue(last(FakeNorvo.calls("NorvoDecoder_PushNttEvent")).startsWith("wws_ntt|0|"));
        assertEquals(0, core.nOnSpeakerLocalizationEvent("{}", nowMs, nowMs));
        assertTrue(last(FakeNorvo.calls("NorvoDecoder_PushNttEvent")).startsWith("wws_ntt|1|"));
        assertEquals(-22, core.nOnCVEvent(null, nowMs));
        expectMessage("CV eventJson native string is NULL.");
        FakeNorvo.setStatus("NorvoDecoder_SetNttConfiguration", null, 6);
        assertEquals(6, core.nSetNttDetectionMode(true, 1));
        expectMessage("Error setting NTT detection mode flag. Error=6");
        FakeNorvo.setStatus("NorvoDecoder_SetNttConfiguration", null, 0);
        assertEquals(0, core.nSwitchNttModel("/models/ntt/v2.manifest"));
        assertEquals("WakeWordService_ntt_modelset|/models/ntt/v2.manifest|",
                last(FakeNorvo.calls("NorvoModelSet_New")));

        // Audio event detection: a decoder, its reports, custom sounds, the presence data.
        assertEquals(0, core.nSetAudioEventDetectionMode(true));
        assertEquals(true, lastArg("aedStatic"));
        assertEquals(1, FakeNorvo.calls("NorvoDecoder_NewPcmInt16").length);
        assertEquals("{}", core.nGetAudioPresenceData());
        assertEquals(0, core.nSetAedCustomModel("/models/aed/custom2.json"));
        assertEquals(true, lastArg("aedCustom"));
        assertEquals(0, core.nSetAedStaticModel("/models/aed/v2.manifest"));
        assertEquals(false, lastArg("aedCustom"));
        assertNotNull(core.nGetAudioPresenceModelSetAttributes());

        // PMA: a switch reports the old decoder gone.
        int before = recorder.named("pmaDecoder").size();
        assertEquals(0, core.nSwitchPmaModel("/models/pma/v2.manifest"));
        assertEquals(before + 1, recorder.named("pmaDecoder").size());
        assertEquals(false, lastArg("pmaDecoder"));
    }

    @Test
    void ttsStateWithoutAPlaybackNotifierIsRefusedWith22() {
        flags[1] = true;  // playback suppressed at creation: no notifier
        assertEquals(0, create());
        assertEquals(22, core.nNotifyTtsState(true));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "notifyTtsState: Error setting native tts state. Error=22"));
    }

    @Test
    void turnTakingAttributesComeFromTheUnifiedModelWhenItHasNtt() {
        assertEquals(0, create());
        assertNull(core.nGetNaturalTurnTakingModelSetAttributes());  // separate set: absent
        assertTrue(NativeLog.contains(NativeLog.ERROR, "Error getting model set attributes, 3"));
        String unified = "{\"model_attributes\":[{\"model_id\":\"norvo\",\"keyword\":"
                + "{\"supported-keyword-list\":[\"STOP\"]},\"ntt\":{}}]}";
        FakeNorvo.setModelSetAttributes("WakeWordService_modelset", unified);
        assertEquals(0, core.nSwitchNorvoModel("/models/ww/unified.manifest", wakeWords));
        assertEquals(unified, core.nGetNaturalTurnTakingModelSetAttributes());
    }

    @Test
    void switchAndInjectReportTheirFailures() {
        assertEquals(0, create());
        assertEquals(-22, core.nSwitchNorvoModel(null, wakeWords));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "switchNorvoModel cannot get norvoModelManifestPath infomation."));
        assertTrue(NativeLog.contains(NativeLog.ERROR, "Error switch Norvo Model. Error=-22"));
        assertFalse(core.nInjectWaveFile(null, false));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "injectWaveFile cannot get filePath infomation."));
        assertFalse(core.nInjectWaveFile("/no/such/file.wav", false));
        assertTrue(NativeLog.contains(NativeLog.ERROR, "Error injecting wave file. Error=-22"));
        assertEquals(0, core.nSetAedCustomModel(null));  // a null path is passed on, not refused
    }
}
