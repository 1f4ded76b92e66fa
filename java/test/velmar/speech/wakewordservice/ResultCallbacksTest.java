package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.util.HashSet;
import java.util.List;
import java.util.Set;
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

/** Engine results, metrics and federated-learning reports reaching Java from engine threads. */
class ResultCallbacksTest extends ServiceHarness {
    /** Every engine-facing callback of the bridge, named as Recorder names its event. */
    private static final String[] CALLBACKS = {"enumerated", "localCommand", "presence", "ntt",
            "endOfSpeech", "json", "metrics", "quillanMetrics", "flEvent", "flUnsecured", "flIdle",
            "aedStatic", "aedCustom", "nttDecoder", "pmaDecoder"};

    @BeforeEach
    void startService() {
        flags[5] = true;  // NTT callbacks registered
        flags[2] = true;  // AED result callback registered
        assertEquals(0, create());
    }

    @Test
    void wakeWordFromTheInputDecoderCarriesItsBlob() throws Exception {
        byte[] blob = {1, 2, 3, 4, 5, 6, 7};
        long before = metadata.writePosition();
        assertTrue(FakeNorvo.fireEnumerated(false, INPUT, "HEYVELMAR", "detail", 1000, 17000, 42,
                1, blob, 99));
        List<Event> events = recorder.await("enumerated", 1);
        assertEquals(1, events.size());
        Object[] a = events.get(0).args;
        assertEquals("HEYVELMAR", a[0]);
        assertEquals("detail", a[1]);
        assertEquals(1000L, a[2]);
        assertEquals(17000L, a[3]);
        assertEquals(before, a[4]);
        assertEquals(7L, a[5]);
        assertEquals(42, a[6]);
        assertEquals(2, a[7]);  // the engine's type plus one
        assertEquals(INPUT, a[8]);
        assertEquals(99L, a[9]);
        assertNotEquals(Thread.currentThread().getId(), events.get(0).threadId);
        assertArrayEquals(blob, metadata.read((Long) a[4], 7));
    }

    @Test
    void otherDecodersAndUnknownTypesGetNoBlob() throws Exception {
        long before = metadata.writePosition();
        assertTrue(FakeNorvo.fireEnumerated(false, "WakeWordService_playback_decoder", "HEYVELMAR",
                "", 1, 2, 0, 2, new byte[] {9, 9}, 0));
        Object[] a = recorder.await("enumerated", 1).get(0).args;
        assertEquals(0L, a[4]);
        assertEquals(0L, a[5]);
        assertEquals(3, a[7]);
        assertEquals(before, metadata.writePosition(), "nothing written for the playback decoder");

        assertTrue(FakeNorvo.fireEnumerated(false, INPUT, "X", "", 1, 2, 0, 3, new byte[0], 0));
        assertTrue(NativeLog.contains(NativeLog.ERROR, "Unknown detectionType: 3"));
        assertEquals(1, recorder.named("enumerated").size());
    }

    @Test
    void concurrentResultsWriteWholeBlobsAtDistinctPositions() throws Exception {
        final int threads = 4;
        final int perThread = 25;
        final int size = 300;
        FakeNorvo.fireConcurrently(threads, perThread, size);
        List<Event> events = recorder.await("enumerated", threads * perThread);
        assertEquals(threads * perThread, events.size());
        Set<Long> positions = new HashSet<>();
        for (Event e : events) {
            long position = (Long) e.args[4];
            assertEquals((long) size, e.args[5]);
            assertTrue(positions.add(position), "position used twice: " + position);
            byte tag = (byte) ((int) e.args[6] & 0xff);
            byte[] blob = metadata.read(position, size);
            assertEquals(size, blob.length);
            for (byte b : blob) assertEquals(tag, b);
        }
    }

    @Test
    void localCommandAndPresence() throws Exception {
        assertTrue(FakeNorvo.fireEnumerated(true, INPUT, "STOP", "d", 5, 6, 1, 0, new byte[] {4},
                0));
        Object[] a = recorder.await("localCommand", 1).get(0).args;
        assertEquals("STOP", a[0]);
        assertEquals("d", a[1]);
        assertEquals(5L, a[2]);
        assertEquals(6L, a[3]);
        assertEquals(1L, a[5]);
        assertEquals(1, a[7]);
        assertTrue(NativeLog.contains(NativeLog.INFO, "Detected a norvo local command"));
        assertTrue(NativeLog.contains(NativeLog.DEBUG, "SPCH-WW: Local Command DetectionType: 1"));
        assertTrue(FakeNorvo.fireEnumerated(true, INPUT, "STOP", "d", 5, 6, 1, 3, new byte[0], 0));
        assertTrue(NativeLog.contains(NativeLog.DEBUG, "SPCH-WW: Local Command DetectionType: -1"));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "Unknown detectionType @ local command detection: 3"));
        assertEquals(1, recorder.named("localCommand").size());

        assertTrue(FakeNorvo.firePresence("WakeWordService_audiopresence_decoder", "DogBark", 10,
                20, 2, true));
        Object[] p = recorder.await("presence", 1).get(0).args;
        assertEquals("DogBark", p[0]);
        assertEquals(10L, p[1]);
        assertEquals(20L, p[2]);
        assertEquals(0L, p[3]);
        assertEquals(0L, p[4]);
        assertEquals(true, p[5]);
        assertEquals(2, p[6]);  // unchanged, unlike wake words
        assertTrue(FakeNorvo.firePresence("x", "Bad", 1, 2, -1, false));
        assertTrue(NativeLog.contains(NativeLog.ERROR, "Unknown detectionType @ presenceDetection: -1"));
        assertEquals(1, recorder.named("presence").size());
    }

    @Test
    void turnTakingResultsAndEndOfSpeech() throws Exception {
        long before = metadata.writePosition();
        assertTrue(FakeNorvo.fireNtt("wws_ntt", 100, 0, new byte[] {8, 8, 8}, 150, 4));
        Object[] a = recorder.await("ntt", 1).get(0).args;
        assertEquals(100L, a[0]);
        assertEquals(150L, a[1]);
        assertEquals(before, a[2]);
        assertEquals(3L, a[3]);
        assertEquals(1, a[4]);
        assertEquals(4, a[5]);
        assertEquals("wws_ntt", a[6]);

        assertTrue(FakeNorvo.fireNtt("wws_ntt", 100, 0, new byte[0], 150, 2));
        Object[] empty = recorder.await("ntt", 2).get(1).args;
        assertEquals(0L, empty[2]);
        assertEquals(0L, empty[3]);
        assertTrue(FakeNorvo.fireNtt("wws_ntt", 1, 0, new byte[0], 1, 5));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "SPCH-WW: Unknown NTT active mode: 5. Ignoring event."));
        assertTrue(FakeNorvo.fireNtt("wws_ntt", 1, 1, new byte[0], 1, 0));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "SPCH-WW: Unknown NTT event type: 1. Ignoring event."));
        assertEquals(2, recorder.named("ntt").size());

        assertTrue(FakeNorvo.fireEndOfSpeech(777));
        assertEquals(777L, recorder.await("endOfSpeech", 1).get(0).args[0]);
    }

    @Test
    void jsonDataAndDecoderStatus() throws Exception {
        assertTrue(FakeNorvo.fireJsondata("first", "second", "third", "fourth", 1, 2));
        Object[] a = recorder.await("json", 1).get(0).args;
        assertEquals("first", a[0]);
        assertEquals("fourth", a[1]);
        FakeNorvo.fireDecoderStatus("aedStatic", true);
        assertEquals(true, last("aedStatic").args[0]);
        FakeNorvo.fireDecoderStatus("aedCustom", false);
        assertEquals(false, last("aedCustom").args[0]);
        FakeNorvo.fireDecoderStatus("ntt", true);
        assertEquals(true, last("nttDecoder").args[0]);
        FakeNorvo.fireDecoderStatus("pma", false);
        assertEquals(false, last("pmaDecoder").args[0]);
    }

    @Test
    void metricsOnBothChannels() throws Exception {
        assertTrue(FakeNorvo.fireMetrics(false, new String[] {"prog", "src", "name", "val"}, 0,
                new String[] {"k1", "v1", "k2", "v2"}));
        NorvoDMSMetricData d = (NorvoDMSMetricData) recorder.await("metrics", 1).get(0).args[0];
        assertEquals("prog", d.programName);
        assertEquals("src", d.sourceName);
        assertEquals("name", d.dataPointName);
        assertEquals("val", d.dataPointValue);
        assertEquals("CT", d.dataPointType);
        assertEquals(1, d.dataPointSamples);  // as the Java constructor set it
        assertEquals(2, d.metadataList.size());
        assertEquals("k2", d.metadataList.get(1).metadataName);
        assertEquals("v2", d.metadataList.get(1).metadataValue);

        assertTrue(FakeNorvo.fireMetrics(false, new String[] {"p", "s", "n", "v"}, 7, null));
        NorvoDMSMetricData plain = (NorvoDMSMetricData) recorder.await("metrics", 2).get(1).args[0];
        assertEquals("", plain.dataPointType);
        assertNull(plain.metadataList);

        assertTrue(FakeNorvo.fireMetrics(true, new String[] {"g", "sch", "n", "v"}, 1,
                new String[] {"a", "b"}));
        NorvoDMSQuillanMetricData q =
                (NorvoDMSQuillanMetricData) recorder.await("quillanMetrics", 1).get(0).args[0];
        assertEquals("g", q.groupID);
        assertEquals("sch", q.schemaID);
        assertEquals("DV", q.dataPointType);
        assertEquals("a", q.metadataList.get(0).metadataName);
        assertTrue(NativeLog.contains(NativeLog.INFO, "Initiate dmsMetricsCallback."));
        assertTrue(NativeLog.contains(NativeLog.INFO, "Initiate dmsQuillanMetricsCallback."));
    }

    @Test
    void federatedLearningEvents() throws Exception {
        assertTrue(FakeNorvo.fireFederatedLearning(false, "set", "model", 0, "{\"a\":1}",
                new byte[] {1, 2}, 0f, null));
        FederatedLearningEvent e =
                (FederatedLearningEvent) recorder.await("flEvent", 1).get(0).args[0];
        assertTrue(e instanceof WWFederatedLearningEvent);
        assertEquals("set", e.mModelSetId);
        assertEquals("model", e.mModelId);
        assertEquals("wakeword", e.mEventType);
        assertEquals("{\"a\":1}", e.mMetadataJson);
        assertArrayEquals(new byte[] {1, 2}, e.mData);

        assertTrue(FakeNorvo.fireFederatedLearning(false, "set", "model", 0, "{}", new byte[0],
                0f, null));
        assertEquals(0, ((FederatedLearningEvent) recorder.await("flEvent", 2).get(1).args[0])
                .mData.length);

        assertTrue(FakeNorvo.fireFederatedLearning(true, "set", "model", 0, "{}", new byte[] {3},
                0.5f, "app"));
        FederatedLearningUnsecuredEvent u =
                (FederatedLearningUnsecuredEvent) recorder.await("flUnsecured", 1).get(0).args[0];
        assertTrue(u instanceof WWFederatedLearningUnsecuredEvent);
        assertEquals(0.5f, u.mSmpcScaleValue);
        assertEquals("app", u.mApplicationId);

        // Unknown kinds are handed over with an empty type, then reported as an exception.
        assertTrue(FakeNorvo.fireFederatedLearning(false, "set", "model", 7, "{}", new byte[0],
                0f, null));
        assertEquals("", ((FederatedLearningEvent) recorder.await("flEvent", 3).get(2).args[0])
                .mEventType);

        // Null model ids never reach Java.
        assertTrue(FakeNorvo.fireFederatedLearning(false, "set", null, 0, "{}", new byte[0], 0f,
                null));
        assertTrue(FakeNorvo.fireFederatedLearning(true, "set", null, 0, "{}", new byte[0], 0f,
                null));
        assertTrue(FakeNorvo.fireFederatedLearning(true, "set", "m", -100, "{}", new byte[0], 0f,
                null));
        assertEquals(3, recorder.named("flEvent").size());
        assertEquals(1, recorder.named("flUnsecured").size());
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "FederatedLearningEventCallback Failed, model is null"));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "FederatedLearningUnsecuredEventCallback Failed, model is null"));
        assertTrue(NativeLog.contains(NativeLog.ERROR,
                "FederatedLearningUnsecuredEventCallback Failed, unsecuredEventDataPtr is null"));
    }

    @Test
    void idleDetectionAnswerIsWrittenBackIntoTheEngineRecord() throws Exception {
        recorder.idleAnswer = 3600;
        assertEquals(3600, FakeNorvo.fireIdleDetection("set", "model", 12));
        FederatedLearningIdleDetectionResult r =
                (FederatedLearningIdleDetectionResult) recorder.await("flIdle", 1).get(0).args[0];
        assertTrue(r instanceof WWFederatedLearningIdleDetectionResult);
        assertEquals("set", r.mModelSetId);
        assertTrue(NativeLog.contains(NativeLog.DEBUG,
                "FederatedLearningIdleDetectionResultCallback - Device idle time (seconds): 3600"));
        recorder.idleAnswer = -1;
        assertEquals(12, FakeNorvo.fireIdleDetection("set", "model", 12));  // unanswered: unchanged
    }

    @Test
    void handlerExceptionIsClearedAndTheEngineThreadGoesOn() throws Exception {
        recorder.throwOnCallback = new IllegalStateException("handler failed");
        assertTrue(FakeNorvo.fireEnumerated(false, INPUT, "A", "", 1, 2, 0, 0, new byte[0], 0));
        recorder.throwOnCallback = null;
        assertTrue(FakeNorvo.fireEnumerated(false, INPUT, "B", "", 1, 2, 0, 0, new byte[0], 0));
        List<Event> events = recorder.await("enumerated", 2);
        assertEquals("A", events.get(0).args[0]);
        assertEquals("B", events.get(1).args[0]);
    }

    private Event last(String kind) {
        List<Event> events = recorder.named(kind);
        return events.get(events.size() - 1);
    }

    @Test
    void noCallbackLeavesAnExceptionOrALocalReferenceOnItsThread() {
        for (RuntimeException thrown : new RuntimeException[] {null,
                     new IllegalStateException("handler failed")}) {
            recorder.throwOnCallback = thrown;
            for (String kind : CALLBACKS) {
                int before = recorder.named(kind).size();
                // On a Java thread a pending exception would surface here, thrown by the native
                // call; the number is of local references the callback left on this thread.
                assertDoesNotThrow(() -> assertEquals(0, FakeNorvo.callBridgeDirectly(kind, false),
                        kind + ": local references left"), kind);
                assertEquals(before + 1, recorder.named(kind).size(), kind);
            }
        }
    }

    @Test
    void nativeThreadsAreDetachedAfterEveryCallback() {
        for (String kind : CALLBACKS) {
            int before = recorder.named(kind).size();
            assertEquals(0, FakeNorvo.callBridgeDirectly(kind, true), kind);
            assertEquals(before + 1, recorder.named(kind).size(), kind);
        }
    }

    @Test
    void nothingReachesJavaAfterDestroy() {
        assertTrue(core.nDestroyNativeService());
        for (String kind : CALLBACKS) {
            int before = recorder.named(kind).size();
            assertEquals(0, FakeNorvo.callBridgeDirectly(kind, false), kind);
            assertEquals(0, FakeNorvo.callBridgeDirectly(kind, true), kind);
            assertEquals(before, recorder.named(kind).size(), kind);
        }
    }
}
