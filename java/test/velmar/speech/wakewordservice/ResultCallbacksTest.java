package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.util.List;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import velmar.speech.federatedlearning.FederatedLearningEvent;
import velmar.speech.federatedlearning.FederatedLearningIdleDetectionResult;
import velmar.speech.federatedlearning.FederatedLearningUnsecuredEvent;
import velmar.speech.federatedlearning.wakeword.WWFederatedLearningEvent;
import velmar.speech.federatedlearning.wakeword.WWFederatedLearningIdleDetectionResult;
import velmar.speech.federatedlearning.wakeword.WWFederatedLearningUnsecuredEvent;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;
import velmar.speech.test.Recorder.Event;

// Engine results, metrics and federated-learning reports reaching Java from engine threads.
class ResultCallbacksTest extends ServiceHarness {
    // Every engine-facing callback of the bridge, named as Recorder names its event.
    private static final String[] CALLBACKS = {"enumerated", "localCommand", "presence", "ntt",
            "endOfSpeech", "json", "metrics", "quillanMetrics", "flEvent", "flUnsecured", "flIdle",
            "aedStatic", "aedCustom", "nttDecoder", "pmaDecoder"};
    private static final String PLAYBACK = "WakeWordService_playback_decoder";

    @BeforeEach
    void startService() {
        flags[5] = true;  // NTT callbacks registered
        flags[2] = true;  // AED result callback registered
        assertEquals(0, create());
    }

    private static String[] texts(String... texts) {
        return texts;
    }

    private static double[] numbers(double... numbers) {
        return numbers;
    }

    // Fires one result on the input decoder's thread and returns the arguments Java received.
    private Object[] deliver(String kind, String[] texts, double[] numbers, byte[] blob)
            throws Exception {
        int before = recorder.named(kind).size();
        assertEquals(0, FakeNorvo.fire(kind, texts, numbers, blob), kind);
        List<Event> events = recorder.await(kind, before + 1);
        assertEquals(before + 1, events.size(), kind);
        return events.get(before).args();
    }

    @Test
    void everyResultKindReachesJavaWithItsValues() throws Exception {
        assertArrayEquals(new Object[] {"HEYVELMAR", "detail", 1000L, 17000L, 0L, 0L, 42, 2,
                PLAYBACK, 99L}, deliver("enumerated", texts(PLAYBACK, "HEYVELMAR", "detail"),
                numbers(1000, 17000, 42, 1, 99), new byte[0]));
        assertArrayEquals(new Object[] {"STOP", "d", 5L, 6L, 0L, 0L, 7, 1, PLAYBACK},
                deliver("localCommand", texts(PLAYBACK, "STOP", "d"), numbers(5, 6, 7, 0), null));
        assertArrayEquals(new Object[] {"DogBark", 10L, 20L, 0L, 0L, true, 2, "aed"},
                deliver("presence", texts("aed", "DogBark"), numbers(10, 20, 2, 1), null));
        assertArrayEquals(new Object[] {100L, 150L, 0L, 0L, 1, 4, "wws_ntt"},
                deliver("ntt", texts("wws_ntt"), numbers(100, 0, 150, 4), null));
        assertArrayEquals(new Object[] {777L}, deliver("endOfSpeech", null, numbers(777), null));
        assertArrayEquals(new Object[] {"first", "fourth"},
                deliver("json", texts("first", "second", "third", "fourth"), numbers(1, 2), null));
        // The decoder-status callbacks call the start or the stop method.
        for (String kind : new String[] {"aedStatic", "aedCustom", "nttDecoder", "pmaDecoder"}) {
            for (boolean started : new boolean[] {true, false}) {
                FakeNorvo.fire(kind, null, numbers(started ? 1 : 0), null, FakeNorvo.JAVA);
                List<Event> events = recorder.named(kind);
                assertEquals(started, events.get(events.size() - 1).args()[0], kind);
            }
        }
    }

    // Wake-word and local-command results of the input decoder and NTT results with a blob, of any
    // decoder, place it in the metadata stream and tell Java where; nothing else writes there.
    @Test
    void onlyTheResultsThatCarryMetadataWriteIt() throws Exception {
        byte[] blob = {1, 2, 3, 4, 5, 6, 7};
        final Object[][] cases = {
                // kind, texts, numbers, blob, where position and size are, written
                {"enumerated", texts(INPUT, "A", ""), numbers(1, 2, 0, 0), blob, 4, true},
                {"enumerated", texts(PLAYBACK, "A", ""), numbers(1, 2, 0, 0), blob, 4, false},
                {"localCommand", texts(INPUT, "STOP", ""), numbers(1, 2, 0, 0), blob, 4, true},
                {"localCommand", texts(PLAYBACK, "STOP", ""), numbers(1, 2, 0, 0), blob, 4, false},
                {"ntt", texts("wws_ntt"), numbers(1, 0, 2, 0), blob, 2, true},
                {"ntt", texts("wws_ntt"), numbers(1, 0, 2, 0), new byte[0], 2, false},
                {"presence", texts("aed", "DogBark"), numbers(1, 2, 0, 1), blob, 3, false},
        };
        for (Object[] c : cases) {
            String what = c[0] + " " + ((String[]) c[1])[0] + " " + ((byte[]) c[3]).length;
            long before = metadata.writePosition();
            Object[] a = deliver((String) c[0], (String[]) c[1], (double[]) c[2], (byte[]) c[3]);
            int at = (Integer) c[4];
            boolean written = (Boolean) c[5];
            assertEquals(written ? before : 0L, a[at], what);
            assertEquals(written ? (long) blob.length : 0L, a[at + 1], what);
            assertEquals(before + (written ? blob.length : 0), metadata.writePosition(), what);
            if (written) assertArrayEquals(blob, metadata.read(before, blob.length), what);
        }
    }

    // Each bound is checked from both sides, with values far out on both sides: a check of the
    // wrong signedness lets negative or huge values through.
    @Test
    void typesAndModesOutsideTheirRangesAreDroppedWithTheirMessage() throws Exception {
        final int min = Integer.MIN_VALUE, max = Integer.MAX_VALUE;
        for (int type : new int[] {min, -1, 0, 2, 3, max}) {
            final boolean known = type >= 0 && type <= 2;
            String[] wake = texts(PLAYBACK, "A", "");
            checkDropped("enumerated", wake, numbers(1, 2, 0, type), 7, known ? type + 1 : null,
                    "Unknown detectionType: " + type);
            checkDropped("localCommand", wake, numbers(1, 2, 0, type), 7, known ? type + 1 : null,
                    "Unknown detectionType @ local command detection: " + type);
            checkDropped("presence", texts("aed", "E"), numbers(1, 2, type, 0), 6,
                    known ? type : null, "Unknown detectionType @ presenceDetection: " + type);
        }
        assertTrue(NativeLog.contains(NativeLog.DEBUG, "SPCH-WW: Local Command DetectionType: -1"));
        for (int mode : new int[] {min, -1, 0, 4, 5, max}) {
            checkDropped("ntt", texts("wws_ntt"), numbers(1, 0, 2, mode), 5,
                    mode >= 0 && mode <= 4 ? mode : null,
                    "SPCH-WW: Unknown NTT active mode: " + mode + ". Ignoring event.");
        }
        for (int eventType : new int[] {min, -1, 1, max}) {
            checkDropped("ntt", texts("wws_ntt"), numbers(1, eventType, 2, 0), 5, null,
                    "SPCH-WW: Unknown NTT event type: " + eventType + ". Ignoring event.");
        }
    }

    // Fires one result; expected is what Java receives at index at, or null when the result is
    // dropped, which (and only which) logs message as an error.
    private void checkDropped(String kind, String[] texts, double[] numbers, int at,
            Object expected, String message) throws Exception {
        String what = kind + " " + java.util.Arrays.toString(numbers);
        int before = recorder.named(kind).size();
        assertEquals(0, FakeNorvo.fire(kind, texts, numbers, null), what);
        List<Event> events = recorder.named(kind);
        assertEquals(expected, events.size() > before ? events.get(before).args()[at] : null, what);
        assertEquals(expected == null, NativeLog.contains(NativeLog.ERROR, message), what);
    }

    // Records become Java objects field by field; types outside the known ones become "".
    @Test
    void metricsAndFederatedLearningReportsBecomeTheirJavaObjects() throws Exception {
        NorvoDMSMetricData d = (NorvoDMSMetricData) deliver("metrics",
                texts("prog", "src", "name", "val", "k1", "v1", "k2", "v2"), numbers(0), null)[0];
        assertEquals(List.of("prog", "src", "name", "val", "CT", "k2", "v2"),
                List.of(d.programName, d.sourceName, d.dataPointName, d.dataPointValue,
                        d.dataPointType, d.metadataList.get(1).metadataName,
                        d.metadataList.get(1).metadataValue));
        for (int type : new int[] {-1, 2}) {
            d = (NorvoDMSMetricData) deliver("metrics", texts("p", "s", "n", "v"), numbers(type),
                    null)[0];
            assertEquals("", d.dataPointType);
            assertNull(d.metadataList);
        }
        NorvoDMSQuillanMetricData q = (NorvoDMSQuillanMetricData) deliver("quillanMetrics",
                texts("g", "sch", "n", "v", "a", "b"), numbers(1), null)[0];
        assertEquals(List.of("g", "sch", "DV", "a"),
                List.of(q.groupID, q.schemaID, q.dataPointType, q.metadataList.get(0).metadataName));

        FederatedLearningEvent e = (FederatedLearningEvent) deliver("flEvent",
                texts("set", "model", "{\"a\":1}"), numbers(0), new byte[] {1, 2})[0];
        assertTrue(e instanceof WWFederatedLearningEvent);
        assertEquals(List.of("set", "model", "wakeword", "{\"a\":1}"),
                List.of(e.mModelSetId, e.mModelId, e.mEventType, e.mMetadataJson));
        assertArrayEquals(new byte[] {1, 2}, e.mData);
        FederatedLearningUnsecuredEvent u = (FederatedLearningUnsecuredEvent) deliver(
                "flUnsecured", texts("set", "model", "{}", "app"), numbers(0, 0.5), new byte[0])[0];
        assertTrue(u instanceof WWFederatedLearningUnsecuredEvent);
        assertEquals(List.of(0.5f, "app", 0), List.of(u.mSmpcScaleValue, u.mApplicationId,
                u.mData.length));
        // Unknown kinds are handed over with an empty type, then reported as an exception.
        assertEquals("", ((FederatedLearningEvent) deliver("flEvent", texts("set", "model", "{}"),
                numbers(7), null)[0]).mEventType);
        // Null model ids and missing event records never reach Java.
        FakeNorvo.fire("flEvent", texts("set", null, "{}"), numbers(0), null);
        FakeNorvo.fire("flUnsecured", texts("set", null, "{}", "a"), numbers(0), null);
        FakeNorvo.fire("flUnsecured", texts("set", "m", "{}", "a"), numbers(-100), null);
        assertEquals(2, recorder.named("flEvent").size());
        assertEquals(1, recorder.named("flUnsecured").size());
        expectErrors("FederatedLearningEventCallback Failed, model is null",
                "FederatedLearningUnsecuredEventCallback Failed, model is null",
                "FederatedLearningUnsecuredEventCallback Failed, unsecuredEventDataPtr is null");
        // The answer to an idle-detection question is written back into the engine's record.
        recorder.idleAnswer = 3600;
        assertEquals(3600, FakeNorvo.fire("flIdle", texts("set", "model"), numbers(12), null));
        FederatedLearningIdleDetectionResult r =
                (FederatedLearningIdleDetectionResult) recorder.named("flIdle").get(0).args()[0];
        assertTrue(r instanceof WWFederatedLearningIdleDetectionResult);
        assertEquals("set", r.mModelSetId);
        recorder.idleAnswer = -1;  // unanswered: unchanged
        assertEquals(12, FakeNorvo.fire("flIdle", texts("set", "model"), numbers(12), null));
    }

    private static void expectErrors(String... messages) {
        for (String message : messages) {
            assertTrue(NativeLog.contains(NativeLog.ERROR, message), message);
        }
    }

    // Handed over on a Java thread, a callback leaves no pending exception (it would surface here,
    // thrown by the native call) and no local reference, even when the handler throws; handed over
    // on a native thread, it detaches the thread again. After destroy nothing reaches Java.
    @Test
    void callbacksLeaveTheirThreadCleanAndNothingReachesJavaAfterDestroy() {
        for (int round = 0; round < 3; round++) {
            recorder.throwOnCallback = round == 1 ? new IllegalStateException("failed") : null;
            if (round == 2) assertTrue(core.nDestroyNativeService());
            for (String kind : CALLBACKS) {
                int before = recorder.named(kind).size();
                assertDoesNotThrow(() -> assertEquals(0, FakeNorvo.fireBridge(kind, FakeNorvo.JAVA),
                        kind + ": local references left"), kind);
                assertEquals(0, FakeNorvo.fireBridge(kind, FakeNorvo.NATIVE), kind);
                assertEquals(before + (round == 2 ? 0 : 2), recorder.named(kind).size(), kind);
            }
        }
    }
}
