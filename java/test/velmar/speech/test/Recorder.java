package velmar.speech.test;

import java.lang.reflect.Proxy;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.atomic.LongAdder;
import velmar.speech.federatedlearning.FederatedLearningIdleDetectionResult;
import velmar.speech.wakewordservice.NorvoDMSQuillanMetricData;
import velmar.speech.wakewordservice.WakeWordServiceListener;

// Records every listener call with its arguments and the thread it arrived on, under a short event
// name: "enumerated", "presence", "localCommand", "ntt", "endOfSpeech", "json", "aedStatic",
// "aedCustom", "nttDecoder", "pmaDecoder", "metrics", "quillanMetrics", "flEvent",
// "flUnsecured", "flIdle", "fingerprint".
public class Recorder {
    public static final class Event {
        public final String name;
        public final Object[] args;
        public final long threadId = Thread.currentThread().getId();

        Event(String name, Object[] args) {
            this.name = name;
            this.args = args;
        }
    }

    private static final Map<String, String> NAMES = Map.ofEntries(
            Map.entry("onEnumeratedResult", "enumerated"),
            Map.entry("onAudioPresenceDetectionResult", "presence"),
            Map.entry("onLocalCommandResult", "localCommand"), Map.entry("onNttResult", "ntt"),
            Map.entry("onNttEndOfSpeechResult", "endOfSpeech"),
            Map.entry("onUtteranceJsonAvailable", "json"),
            Map.entry("onAedStaticDecoder", "aedStatic"),
            Map.entry("onAedCustomDecoder", "aedCustom"), Map.entry("onNttDecoder", "nttDecoder"),
            Map.entry("onPmaDecoder", "pmaDecoder"), Map.entry("onMetrics", "metrics"),
            Map.entry("onFederatedLearningEvent", "flEvent"),
            Map.entry("onFederatedLearningUnsecuredEvent", "flUnsecured"),
            Map.entry("onFederatedLearningIdleDetectionResult", "flIdle"),
            Map.entry("onFingerprintResult", "fingerprint"));

    private final List<Event> mEvents = new ArrayList<>();
    private final Map<String, LongAdder> mCounts = new ConcurrentHashMap<>();
    // When false, callbacks are only counted (count()), not kept: for runs of unbounded length.
    public volatile boolean keepEvents = true;
    // When set, every callback throws this after recording.
    public volatile RuntimeException throwOnCallback;
    // The idle time answered to the engine's question.
    public volatile long idleAnswer = -1;

    // The listener to hand the service.
    public final WakeWordServiceListener listener = (WakeWordServiceListener) Proxy.newProxyInstance(
            WakeWordServiceListener.class.getClassLoader(),
            new Class<?>[] {WakeWordServiceListener.class}, (proxy, method, args) -> {
                if (method.getDeclaringClass() == Object.class) {
                    return method.getName().equals("equals") ? proxy == args[0]
                            : method.getName().equals("hashCode") ? 0 : "Recorder";
                }
                Object[] values = args == null ? new Object[0] : args;
                String name = values.length == 1 && values[0] instanceof NorvoDMSQuillanMetricData
                        ? "quillanMetrics" : NAMES.get(method.getName());
                if (idleAnswer >= 0 && values.length == 1
                        && values[0] instanceof FederatedLearningIdleDetectionResult) {
                    ((FederatedLearningIdleDetectionResult) values[0])
                            .setTimeSinceLastIdleSec(idleAnswer);
                }
                record(name, values);
                return null;
            });

    private void record(String name, Object[] args) {
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
                if (e.name.equals(name)) found.add(e);
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
}
