package velmar.speech.tools;

import java.io.ByteArrayInputStream;
import java.io.File;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import javax.sound.sampled.AudioFileFormat;
import javax.sound.sampled.AudioFormat;
import javax.sound.sampled.AudioInputStream;
import javax.sound.sampled.AudioSystem;
import javax.sound.sampled.UnsupportedAudioFileException;

/** 16 kHz mono 16-bit WAV files: what the service injects and what the engine hears. */
public final class Wav {
    public static final int RATE = 16000;

    private Wav() {}

    /**
     * The samples of a 16 kHz, mono, 16-bit PCM WAV file. Any other file fails with an
     * IOException whose message is one line saying what is wrong.
     */
    public static short[] read(File file) throws IOException {
        if (!file.canRead()) {
            throw new IOException("cannot read " + file + (file.exists() ? "" : ": no such file"));
        }
        try (AudioInputStream in = AudioSystem.getAudioInputStream(file)) {
            AudioFileFormat type = AudioSystem.getAudioFileFormat(file);
            AudioFormat format = in.getFormat();
            if (type.getType() != AudioFileFormat.Type.WAVE
                    || format.getEncoding() != AudioFormat.Encoding.PCM_SIGNED
                    || format.getSampleSizeInBits() != 16 || format.getChannels() != 1
                    || format.getSampleRate() != RATE || format.isBigEndian()) {
                throw new IOException(file + " is " + describe(type, format)
                        + ", not 16 kHz mono 16-bit PCM WAV (convert it: sox " + file
                        + " -r 16000 -c 1 -b 16 out.wav)");
            }
            byte[] bytes = in.readAllBytes();
            short[] pcm = new short[bytes.length / 2];
            ByteBuffer.wrap(bytes).order(ByteOrder.LITTLE_ENDIAN).asShortBuffer().get(pcm);
            return pcm;
        } catch (UnsupportedAudioFileException e) {
            throw new IOException(file + " is not a WAV file");
        }
    }

    /**
     * The frames a WAV file's header promises, or -1 when it does not say (a stream's header). A
     * file cut short has fewer: {@link #read} returns what is there.
     */
    public static long framesPromised(File file) throws IOException {
        try {
            long frames = AudioSystem.getAudioFileFormat(file).getFrameLength();
            // A recorder writing to a pipe cannot know the length and puts a placeholder near
            // 2^31 bytes there; a stream saved to a file keeps it.
            return frames * 2 >= 0x7FFF0000L ? -1 : frames;
        } catch (UnsupportedAudioFileException e) {
            throw new IOException(file + " is not a WAV file");
        }
    }

    private static String describe(AudioFileFormat type, AudioFormat format) {
        return type.getType() + " " + format.getEncoding() + ", " + (int) format.getSampleRate()
                + " Hz, " + format.getSampleSizeInBits() + "-bit, " + format.getChannels()
                + " channel" + (format.getChannels() == 1 ? "" : "s");
    }

    public static void write(File file, short[] pcm) throws IOException {
        ByteBuffer data = ByteBuffer.allocate(pcm.length * 2).order(ByteOrder.LITTLE_ENDIAN);
        for (short s : pcm) data.putShort(s);
        AudioFormat format = new AudioFormat(RATE, 16, 1, true, false);
        try (AudioInputStream in = new AudioInputStream(
                     new ByteArrayInputStream(data.array()), format, pcm.length)) {
            AudioSystem.write(in, AudioFileFormat.Type.WAVE, file);
        }
    }

    /** Raw little-endian bytes, as a microphone pipe carries them. */
    public static void writeRaw(File file, short[] pcm) throws IOException {
        ByteBuffer data = ByteBuffer.allocate(pcm.length * 2).order(ByteOrder.LITTLE_ENDIAN);
        for (short s : pcm) data.putShort(s);
        Files.write(file.toPath(), data.array());
    }

    /** The speech of a clip: from its first to its last 10 ms frame within 30 dB of the loudest. */
    public static short[] speech(short[] clip) {
        int frame = RATE / 100;
        int frames = clip.length / frame;
        double[] energy = new double[frames];
        double loudest = 0;
        for (int f = 0; f < frames; f++) {
            double sum = 0;
            for (int i = f * frame; i < (f + 1) * frame; i++) sum += (double) clip[i] * clip[i];
            energy[f] = sum / frame;
            loudest = Math.max(loudest, energy[f]);
        }
        int first = 0;
        int last = frames;
        while (first < last && energy[first] < loudest * 1e-3) first++;
        while (last > first && energy[last - 1] < loudest * 1e-3) last--;
        short[] speech = new short[(last - first) * frame];
        System.arraycopy(clip, first * frame, speech, 0, speech.length);
        return speech;
    }
}
