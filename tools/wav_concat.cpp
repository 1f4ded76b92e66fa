// Joins 16 kHz mono WAV files and pauses into one WAV file (the build makes the main job's sample
// utterance with it from flite clips).
//   wav_concat <out.wav> <item>...   each item a WAV path or a pause in seconds (e.g. 0.8)
#include <sndfile.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: %s <out.wav> <wav or seconds>...\n", argv[0]);
        return 2;
    }
    std::vector<short> samples;
    for (int i = 2; i < argc; ++i) {
        char* end = nullptr;
        double seconds = strtod(argv[i], &end);
        if (end != argv[i] && *end == '\0') {
            samples.insert(samples.end(), static_cast<size_t>(seconds * 16000), 0);
            continue;
        }
        SF_INFO info{};
        SNDFILE* in = sf_open(argv[i], SFM_READ, &info);
        if (in == nullptr || info.samplerate != 16000 || info.channels != 1) {
            fprintf(stderr, "%s: not a 16 kHz mono WAV file\n", argv[i]);
            if (in != nullptr) sf_close(in);
            return 1;
        }
        std::vector<short> clip(static_cast<size_t>(info.frames));
        sf_readf_short(in, clip.data(), info.frames);
        sf_close(in);
        samples.insert(samples.end(), clip.begin(), clip.end());
    }
    SF_INFO info{};
    info.samplerate = 16000;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* out = sf_open(argv[1], SFM_WRITE, &info);
    if (out == nullptr) {
        fprintf(stderr, "cannot write %s: %s\n", argv[1], sf_strerror(nullptr));
        return 1;
    }
    sf_writef_short(out, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(out);
    return 0;
}
