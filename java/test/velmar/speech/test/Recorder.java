package velmar.speech.test;

import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.LongAdder;
import velmar.speech.federatedlearning.FederatedLearningEvent;
import velmar.speech.federatedlearning.FederatedLearningIdleDetectionResult;
import velmar.speech.federatedlearning.FederatedLearningUnsecuredEvent;
import velmar.speech.wakewordservice.NorvoDMSMetricData;
import velmar.speech.wakewordservice.NorvoDMSQuillanMetricData;
import velmar.speech.wakewordservice.WakeWordServiceListener;
import velmar.speech.wakewordservice.fingerprint.FingerprintResult;

// Records every callback with its arguments.
public class Recorder implements WakeWordServiceListener {
    public record Event(String name, Object[] args) {}

    private final List<Event> mEvents = new ArrayList<>();
    private final Map<String, LongAdder> mCounts = new ConcurrentHashMap<>();
    // When false, callbacks are only counted (count()), not kept: for runs of unbounded length.
    public volatile boolean keepEvents = true;
    // When set, every callback throws this after recording.
    public volatile RuntimeException throwOnCallback;
    // The idle time answered to the engine's question.
    public volatile long idleAnswer = -1;

    private void record(String name, Object... args) {
        mCounts.computeIfAbsent(name, key -> new LongAdder()).increment();
        if (keepEvents) {
            synchronized (mEvents) {
                mEvents.add(new Event(name, args));
                mEvents.notifyAll();
            }
        }
        RuntimeException toThrow = throwOnCallback;
        if (toThrow != null) throw toThrow;
    }

    // Callbacks named name so far, kept or not.
    public long count(String name) {
        LongAdder count = mCounts.get(name);
        return count == null ? 0 : count.sum();
    }

    public List<Event> named(String name) {
        List<Event> found = new ArrayList<>();
        synchronized (mEvents) {
            for (Event e : mEvents) {
                if (e.name().equals(name)) found.add(e);
            }
        }
        return found;
    }

    // Waits up to 5 s for count events named name.
    public List<Event> await(String name, int count) throws InterruptedException {
        long deadline = System.currentTimeMillis() + 5000;
        synchronized (mEvents) {
            while (named(name).size() < count && System.currentTimeMillis() < deadline) {
                mEvents.wait(Math.max(1, deadline - System.currentTimeMillis()));
            }
        }
        return named(name);
    }

    @Override
    public void onEnumeratedResult(String keyword, String detail, long begin, long end,
            long position, long size, int detailValue, int detectionType, String decoderId,
            long tail) {
        record("enumerated", keyword, detail, begin, end, position, size, detailValue,
                detectionType, decoderId, tail);
    }

    @Override
    public void onAudioPresenceDetectionResult(String eventName, long begin, long end, long u1,
            long u2, boolean flag, int detectionType, String decoderId) {
        record("presence", eventName, begin, end, u1, u2, flag, detectionType, decoderId);
    }

    @Override
    public void onLocalCommandResult(String keyword, String detail, long begin, long end,
            long position, long size, int detailValue, int detectionType, String decoderId) {
        record("localCommand", keyword, detail, begin, end, position, size, detailValue,
                detectionType, decoderId);
    }

    @Override
    public void onNttResult(long begin, long detectionIndex, long position, long size,
            int eventType, int activeMode, String decoderId) {
        record("ntt", begin, detectionIndex, position, size, eventType, activeMode, decoderId);
    }

    @Override
    public void onNttEndOfSpeechResult(long value) {
        record("endOfSpeech", value);
    }

    @Override
    public void onUtteranceJsonAvailable(String first, String fourth) {
        record("json", first, fourth);
    }

    @Override
    public void onAedStaticDecoder(boolean started) {
        record("aedStatic", started);
    }

    @Override
    public void onAedCustomDecoder(boolean started) {
        record("aedCustom", started);
    }

    @Override
    public void onNttDecoder(boolean started) {
        record("nttDecoder", started);
    }

    @Override
    public void onPmaDecoder(boolean started) {
        record("pmaDecoder", started);
    }

    @Override
    public void onMetrics(NorvoDMSMetricData data) {
        record("metrics", data);
    }

    @Override
    public void onMetrics(NorvoDMSQuillanMetricData data) {
        record("quillanMetrics", data);
    }

    @Override
    public void onFederatedLearningEvent(FederatedLearningEvent event) {
        record("flEvent", event);
    }

    @Override
    public void onFederatedLearningUnsecuredEvent(FederatedLearningUnsecuredEvent event) {
        record("flUnsecured", event);
    }

    @Override
    public void onFederatedLearningIdleDetectionResult(FederatedLearningIdleDetectionResult r) {
        if (idleAnswer >= 0) r.setTimeSinceLastIdleSec(idleAnswer);
        record("flIdle", r);
    }

    @Override
    public void onFingerprintResult(FingerprintResult result) {
        record("fingerprint", result);
    }
}
