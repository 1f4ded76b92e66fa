package velmar.speech.wakewordservice;

import java.lang.reflect.Field;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import velmar.speech.audio.AudioStream;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.NativeLog;
import velmar.speech.test.Recorder;

// One native service per test on the fake engine, torn down after it.
abstract class ServiceHarness {
    static final String INPUT = "WakeWordService_input_decoder";

    Recorder recorder;
    NativeWakeWordServiceCore core;
    AudioStream audio;
    AudioStream oneMic;
    AudioStream metadata;

    // Arguments of the next create(), changed by tests as needed.
    String packageName = "velmar.speech.wakewordservice";
    String manifest = "/models/ww/norvo.manifest";
    String aedStatic = "/models/aed/static.manifest";
    String ntt = "/models/ntt/norvo.manifest";
    String pma = "/models/pma/norvo.manifest";
    String aedCustom = "/models/aed/custom.json";
    String[] wakeWords = {"HEYVELMAR"};
    boolean[] flags = new boolean[7];
    int[] numbers = {-19, 320, 3600, 9};

    @BeforeEach
    void setUpService() {
        FakeNorvo.reset();
        NativeLog.start();
        recorder = new Recorder();
        core = new NativeWakeWordServiceCore(recorder);
        audio = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 18);
        oneMic = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 16);
        metadata = new AudioStream(AudioStream.FORMAT_PCM_16_BIT, 16000, 1, 1 << 16);
    }

    @AfterEach
    void tearDownService() {
        if (nativeInstance() != 0) core.nDestroyNativeService();
        audio.close();
        oneMic.close();
        metadata.close();
        NativeLog.stop();
        FakeNorvo.reset();
    }

    int create(AudioStream main, AudioStream second, AudioStream meta) {
        return core.nCreateNativeService(packageName, main, second, meta, manifest, aedStatic,
                ntt, pma, aedCustom, wakeWords, flags[0], flags[1], flags[2], flags[3], flags[4],
                flags[5], flags[6], numbers[0], numbers[1], numbers[2], numbers[3]);
    }

    int create() {
        return create(audio, null, metadata);
    }

    long nativeInstance() {
        try {
            Field field = NativeWakeWordServiceCore.class.getDeclaredField("mNativeInstance");
            field.setAccessible(true);
            return field.getLong(core);
        } catch (ReflectiveOperationException e) {
            throw new AssertionError(e);
        }
    }
}
