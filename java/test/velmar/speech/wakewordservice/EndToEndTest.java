package velmar.speech.wakewordservice;

import static org.junit.jupiter.api.Assertions.*;

import java.io.ByteArrayOutputStream;
import java.io.File;
import java.io.FileOutputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.util.List;
import org.junit.jupiter.api.Test;
import velmar.speech.test.FakeNorvo;
import velmar.speech.test.HostAudio;
import velmar.speech.test.Recorder.Event;

/**
 * Java creates the service on the fake engine and injects a WAV file; the engine hears the
 * wake word in the injected audio and reports it from its own decoder thread; Java receives the
 * result with its sample range and reads the result's metadata back from the metadata stream.
 */
class EndToEndTest extends ServiceHarness {
    private static final short TRIGGER = 12345;

    /** 16 kHz mono 16-bit samples: a ramp, with the trigger at triggerIndex. */
    private static short[] utterance(int samples, int triggerIndex) {
        short[] pcm = new short[samples];
        for (int i = 0; i < samples; i++) pcm[i] = (short) (i % 1000);
        pcm[triggerIndex] = TRIGGER;
        return pcm;
    }

    private static byte[] littleEndian(short[] pcm) {
        ByteBuffer bytes = ByteBuffer.allocate(pcm.length * 2).order(ByteOrder.LITTLE_ENDIAN);
        for (short s : pcm) bytes.putShort(s);
        return bytes.array();
    }

    private static File writeWav(short[] pcm) throws IOException {
        byte[] data = littleEndian(pcm);
        ByteBuffer header = ByteBuffer.allocate(44).order(ByteOrder.LITTLE_ENDIAN);
        header.put("RIFF".getBytes()).putInt(36 + data.length).put("WAVE".getBytes());
        header.put("fmt ".getBytes()).putInt(16).putShort((short) 1).putShort((short) 1);
        header.putInt(16000).putInt(32000).putShort((short) 2).putShort((short) 16);
        header.put("data".getBytes()).putInt(data.length);
        File file = File.createTempFile("utterance", ".wav");
        file.deleteOnExit();
        try (FileOutputStream out = new FileOutputStream(file)) {
            out.write(header.array());
            out.write(data);
        }
        return file;
    }

    @Test
    void injectedWakeWordReachesJavaWithItsMetadata() throws Exception {
        byte[] blob = "{\"score\":0.97}".getBytes();
        FakeNorvo.scriptKeyword(INPUT, TRIGGER, "HEYVELMAR", blob);
        assertEquals(0, create());
        short[] pcm = utterance(16000, 9000);
        File wav = writeWav(pcm);

        assertTrue(core.nInjectWaveFile(wav.getPath(), false));
        List<Event> results = recorder.await("enumerated", 1);
        assertEquals(1, results.size());
        Object[] a = results.get(0).args;
        assertEquals("HEYVELMAR", a[0]);
        assertEquals(9000L, a[2]);
        assertEquals(9000L, a[3]);
        assertEquals(1, a[7]);
        assertEquals(INPUT, a[8]);
        assertNotEquals(Thread.currentThread().getId(), results.get(0).threadId);
        assertEquals((long) blob.length, a[5]);
        assertArrayEquals(blob, metadata.read((Long) a[4], blob.length));

        // The whole file went through the service: counted, and mirrored into the audio stream.
        long deadline = System.currentTimeMillis() + 10000;
        while (core.nGetInputFrameCount() < 16000 && System.currentTimeMillis() < deadline) {
            Thread.sleep(10);
        }
        assertEquals(16000, core.nGetInputFrameCount());
        assertArrayEquals(littleEndian(pcm), audio.read(0, 32000));
    }

    /** Waits (up to 10 s) until both frame counters reach their targets. */
    private void awaitFrames(long input, long playback) throws InterruptedException {
        long deadline = System.currentTimeMillis() + 10000;
        while ((core.nGetInputFrameCount() < input || core.nGetPlaybackFrameCount() < playback)
                && System.currentTimeMillis() < deadline) {
            Thread.sleep(10);
        }
    }

    @Test
    void liveMicrophoneAndPlaybackFeedTheirOwnDecoders() throws Exception {
        HostAudio.reset();
        try {
            flags[0] = true;  // playback captured through AudioRecord
            short[] microphone = utterance(16000, 100);
            short[] playback = new short[8000];
            for (int i = 0; i < playback.length; i++) playback[i] = (short) (-1 - i % 3000);
            HostAudio.push(HostAudio.MICROPHONE, microphone);
            HostAudio.push(HostAudio.PLAYBACK, playback);
            assertEquals(0, create());
            assertEquals(0, core.nSetDetectorEnabled(true));
            awaitFrames(16000, 8000);
            assertEquals(0, core.nSetDetectorEnabled(false));

            assertEquals(16000, core.nGetInputFrameCount());
            assertEquals(8000, core.nGetPlaybackFrameCount());
            assertArrayEquals(microphone, FakeNorvo.pushedSamples(INPUT));
            assertArrayEquals(playback, FakeNorvo.pushedSamples("WakeWordService_playback_decoder"));
        } finally {
            HostAudio.reset();
        }
    }
}
