// Measures the PocketSphinx engine's accuracy on an evaluation set: recall of the wake phrases and
// false alarms per hour of unrelated speech, on clean audio and with pink noise at a given SNR.
// scripts/evaluate.sh builds the set with flite and runs this program; see it for the set itself.
//
//   engine_eval --manifest M --playlist P [--snr DB] [--threshold T] [--set KEYWORD=T]...
//               [--verbose]
//
// The playlist has one item per line, paths absolute or relative to the playlist's folder:
//   wake <KEYWORD> <phrase.wav> <carrier.wav>   the phrase, then a short request after a pause
//   command <KEYWORD> <command.wav>             a local command on its own
//   speech <sentence.wav>                       unrelated speech
// Every WAV is 16 kHz mono. Items are laid end to end, with pauses, into one stream per condition
// (clean, noisy); each stream goes through a decoder of its own, through the engine's C API, as
// fast as the decoders go, with every keyword of the manifest enabled (as the service enables
// them). A phrase or command counts as heard when a detection of its keyword overlaps it (widened
// by 200 ms); every other detection is a false alarm of its kind.
// --set KEYWORD=T replaces one keyword's threshold and --threshold T every one, to try others;
// --verbose lists the misses and false alarms.
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

namespace {

constexpr int kRate = 16000;

struct Item {
    bool wake = false;     // a wake phrase or local command to be heard
    bool command = false;  // a local command
    std::string keyword;
    int64_t begin = 0;  // phrase (or sentence) range in the stream
    int64_t end = 0;
    std::string source;
};

struct Result {
    std::string decoder;
    std::string keyword;
    int64_t begin;
    int64_t end;
    int64_t decidedAt;
    double score;
    bool command;
};

std::mutex gLock;
std::vector<Result> gResults;

double scoreOf(const NorvoEnumeratedResult* r) {
    std::string blob(reinterpret_cast<const char*>(r->blob.data), r->blob.size);
    size_t at = blob.find("\"score\":");
    return at == std::string::npos ? 0 : atof(blob.c_str() + at + 8);
}

void record(NorvoDecoderId id, NorvoEnumeratedResult* r, bool command) {
    std::lock_guard<std::mutex> guard(gLock);
    gResults.push_back(Result{id, r->keyword, r->beginSampleIndex, r->endSampleIndex, r->tailValue,
                              scoreOf(r), command});
}
void onWake(NorvoDecoderId id, NorvoEnumeratedResult* r) {
    record(id, r, false);
}
void onCommand(NorvoDecoderId id, NorvoEnumeratedResult* r) {
    record(id, r, true);
}
void onLog(int level, const char*, const char* message) {
    if (level <= 3) fprintf(stderr, "engine: %s\n", message);
}

std::string resolve(const std::string& folder, const std::string& path) {
    return !path.empty() && path[0] == '/' ? path : folder + path;
}

bool readWav(const std::string& path, std::vector<int16_t>* samples) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        fprintf(stderr, "cannot open %s: %s\n", path.c_str(), sf_strerror(nullptr));
        return false;
    }
    if (info.samplerate != kRate || info.channels != 1) {
        fprintf(stderr, "%s: need 16 kHz mono, got %d Hz, %d channels\n", path.c_str(),
                info.samplerate, info.channels);
        sf_close(file);
        return false;
    }
    samples->resize(static_cast<size_t>(info.frames));
    sf_count_t read = sf_readf_short(file, samples->data(), info.frames);
    sf_close(file);
    if (read != info.frames) {
        fprintf(stderr, "%s: read %lld of %lld frames\n", path.c_str(),
                static_cast<long long>(read), static_cast<long long>(info.frames));
        return false;
    }
    return true;
}

// The speech inside a clip: from the first to the last 10 ms frame within 30 dB of the loudest.
void speechRange(const std::vector<int16_t>& clip, size_t* first, size_t* last) {
    const size_t frame = kRate / 100;
    std::vector<double> energy;
    for (size_t at = 0; at + frame <= clip.size(); at += frame) {
        double sum = 0;
        for (size_t i = at; i < at + frame; ++i) sum += double(clip[i]) * clip[i];
        energy.push_back(sum / frame);
    }
    double loudest = energy.empty() ? 0 : *std::max_element(energy.begin(), energy.end());
    size_t a = 0, b = energy.size();
    while (a < energy.size() && energy[a] < loudest * 1e-3) ++a;
    while (b > a && energy[b - 1] < loudest * 1e-3) --b;
    *first = a * frame;
    *last = b * frame;
}

void append(std::vector<int16_t>* stream, const std::vector<int16_t>& clip, size_t first,
            size_t last) {
    stream->insert(stream->end(), clip.begin() + first, clip.begin() + last);
}
void silence(std::vector<int16_t>* stream, double seconds) {
    stream->insert(stream->end(), static_cast<size_t>(seconds * kRate), 0);
}

// Pink noise (Paul Kellet's economy filter over white noise), deterministic.
std::vector<float> pinkNoise(size_t n, uint32_t seed) {
    std::vector<float> noise(n);
    uint32_t state = seed;
    double b0 = 0, b1 = 0, b2 = 0;
    for (size_t i = 0; i < n; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        double white = (state / 4294967296.0) * 2 - 1;
        b0 = 0.99765 * b0 + white * 0.0990460;
        b1 = 0.96300 * b1 + white * 0.2965164;
        b2 = 0.57000 * b2 + white * 1.0526913;
        noise[i] = static_cast<float>(b0 + b1 + b2 + white * 0.1848);
    }
    return noise;
}

// A copy of the manifest with other thresholds (and absolute paths), in a temporary file.
std::string withThresholds(const std::string& manifestPath, const std::string& all,
                           const std::map<std::string, std::string>& overrides) {
    std::ifstream in(manifestPath);
    std::stringstream out;
    std::string line;
    std::string folder = manifestPath.substr(0, manifestPath.rfind('/') + 1);
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string kind, name, old;
        fields >> kind;
        if (kind == "wake" || kind == "command") {
            fields >> name >> old;
            std::string rest;
            std::getline(fields, rest);
            auto override = overrides.find(name);
            std::string threshold = override != overrides.end() ? override->second
                                    : all.empty()               ? old
                                                                : all;
            out << kind << " " << name << " " << threshold << rest << "\n";
        } else if (kind == "acoustic-model" || kind == "dictionary") {
            std::string path;
            std::getline(fields, path);
            path.erase(0, path.find_first_not_of(" \t"));
            out << kind << " " << resolve(folder, path) << "\n";
        } else {
            out << line << "\n";
        }
    }
    char name[] = "/tmp/engine-eval-XXXXXX";
    int fd = mkstemp(name);
    std::string text = out.str();
    if (fd < 0 || write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        return "";
    }
    close(fd);
    return name;
}

bool push(const char* decoder, const std::vector<int16_t>& stream, size_t at, size_t count) {
    char metadata[128];
    snprintf(metadata, sizeof(metadata), "{ \"sample_count\":%zu, \"first_sample_index\":%zu }",
             count, at);
    NorvoAudioEvent event{"samples", metadata, stream.data() + at, 0};
    NorvoStatus status = NorvoDecoder_PushAudioEvent(decoder, &event);
    if (status != NORVO_SUCCESS) fprintf(stderr, "push to %s failed: %d\n", decoder, status);
    return status == NORVO_SUCCESS;
}

double percentile(std::vector<double> values, double fraction) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<size_t>(fraction * values.size()))];
}
double median(const std::vector<double>& values) {
    return percentile(values, 0.5);
}

struct Outcome {
    int positives = 0, heard = 0, falseAlarms = 0;
    double unrelatedSeconds = 0;
    std::vector<double> latencyMs, beginErrorMs, endErrorMs;
    std::vector<std::string> missed, alarms;
    std::vector<std::pair<std::string, double>> hitScores, alarmScores;
};

// The outcome for wake phrases (commands false) or local commands (commands true).
Outcome score(const std::string& decoder, const std::vector<Item>& items, bool commands) {
    Outcome outcome;
    std::vector<Result> results;
    {
        std::lock_guard<std::mutex> guard(gLock);
        for (const Result& r : gResults) {
            if (r.decoder == decoder) results.push_back(r);
        }
    }
    std::vector<bool> used(results.size(), false);
    for (const Item& item : items) {
        if (!item.wake) {
            outcome.unrelatedSeconds += double(item.end - item.begin) / kRate;
            continue;
        }
        if (item.command != commands) continue;
        ++outcome.positives;
        const int64_t slack = kRate / 5;
        int best = -1;
        for (size_t i = 0; i < results.size(); ++i) {
            const Result& r = results[i];
            if (used[i] || r.command != commands || r.keyword != item.keyword) continue;
            if (r.begin <= item.end + slack && item.begin - slack <= r.end) {
                if (best < 0 || r.score > results[best].score) best = static_cast<int>(i);
            }
        }
        if (best < 0) {
            outcome.missed.push_back(item.source);
            continue;
        }
        used[best] = true;
        ++outcome.heard;
        const Result& r = results[best];
        outcome.hitScores.emplace_back(r.keyword, r.score);
        outcome.latencyMs.push_back(double(r.decidedAt - item.end) * 1000 / kRate);
        outcome.beginErrorMs.push_back(double(r.begin - item.begin) * 1000 / kRate);
        outcome.endErrorMs.push_back(double(r.end - item.end) * 1000 / kRate);
    }
    for (size_t i = 0; i < results.size(); ++i) {
        if (used[i] || results[i].command != commands) continue;
        ++outcome.falseAlarms;
        std::string during = "a pause";
        for (const Item& item : items) {
            if (results[i].begin <= item.end && item.begin <= results[i].end) during = item.source;
        }
        char alarm[256];
        snprintf(alarm, sizeof(alarm), "%s at %.2f s (during %s), score %.1f",
                 results[i].keyword.c_str(), double(results[i].begin) / kRate, during.c_str(),
                 results[i].score);
        outcome.alarms.push_back(alarm);
        outcome.alarmScores.emplace_back(results[i].keyword, results[i].score);
    }
    return outcome;
}

}  // namespace

int main(int argc, char** argv) {
    std::string manifest, playlist, threshold;
    std::map<std::string, std::string> overrides;
    double snr = 20;
    bool verbose = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--manifest" && i + 1 < argc)
            manifest = argv[++i];
        else if (arg == "--playlist" && i + 1 < argc)
            playlist = argv[++i];
        else if (arg == "--snr" && i + 1 < argc)
            snr = atof(argv[++i]);
        else if (arg == "--threshold" && i + 1 < argc)
            threshold = argv[++i];
        else if (arg == "--set" && i + 1 < argc && strchr(argv[i + 1], '=') != nullptr) {
            std::string setting = argv[++i];
            overrides[setting.substr(0, setting.find('='))] = setting.substr(setting.find('=') + 1);
        } else if (arg == "--verbose")
            verbose = true;
        else {
            fprintf(stderr,
                    "usage: %s --manifest M --playlist P [--snr DB] [--threshold T] "
                    "[--set KEYWORD=T]... [--verbose]\n",
                    argv[0]);
            return 2;
        }
    }
    if (manifest.empty() || playlist.empty()) {
        fprintf(stderr, "need --manifest and --playlist\n");
        return 2;
    }

    // ---- the stream ----
    std::ifstream list(playlist);
    if (!list) {
        fprintf(stderr, "cannot read %s\n", playlist.c_str());
        return 1;
    }
    std::string folder = playlist.substr(0, playlist.rfind('/') + 1);
    std::vector<int16_t> stream;
    std::vector<Item> items;
    std::vector<std::pair<size_t, size_t>> speech;  // ranges that count towards the speech level
    std::string line;
    silence(&stream, 1.0);
    while (std::getline(list, line)) {
        std::istringstream fields(line);
        std::string kind;
        fields >> kind;
        std::vector<int16_t> clip;
        size_t first, last;
        if (kind == "wake") {
            Item item;
            std::string phrase, carrier;
            fields >> item.keyword >> phrase >> carrier;
            item.wake = true;
            item.source = phrase;
            if (!readWav(resolve(folder, phrase), &clip)) return 1;
            speechRange(clip, &first, &last);
            item.begin = static_cast<int64_t>(stream.size());
            append(&stream, clip, first, last);
            item.end = static_cast<int64_t>(stream.size()) - 1;
            speech.emplace_back(item.begin, stream.size());
            items.push_back(item);
            silence(&stream, 0.4);
            if (!readWav(resolve(folder, carrier), &clip)) return 1;
            speechRange(clip, &first, &last);
            size_t at = stream.size();
            append(&stream, clip, first, last);
            speech.emplace_back(at, stream.size());
            silence(&stream, 1.2);
        } else if (kind == "command") {
            Item item;
            std::string file;
            fields >> item.keyword >> file;
            item.wake = true;
            item.command = true;
            item.source = file;
            if (!readWav(resolve(folder, file), &clip)) return 1;
            speechRange(clip, &first, &last);
            silence(&stream, 0.6);
            item.begin = static_cast<int64_t>(stream.size());
            append(&stream, clip, first, last);
            item.end = static_cast<int64_t>(stream.size()) - 1;
            speech.emplace_back(item.begin, stream.size());
            items.push_back(item);
            silence(&stream, 1.2);
        } else if (kind == "speech") {
            Item item;
            std::string sentence;
            fields >> sentence;
            item.source = sentence;
            if (!readWav(resolve(folder, sentence), &clip)) return 1;
            speechRange(clip, &first, &last);
            item.begin = static_cast<int64_t>(stream.size());
            append(&stream, clip, first, last);
            item.end = static_cast<int64_t>(stream.size()) - 1;
            speech.emplace_back(item.begin, stream.size());
            items.push_back(item);
            silence(&stream, 0.35);
        } else if (!kind.empty() && kind[0] != '#') {
            fprintf(stderr, "%s: unknown item '%s'\n", playlist.c_str(), line.c_str());
            return 1;
        }
    }
    silence(&stream, 1.0);

    // Noise at the requested SNR against the level of the speech (pauses excluded).
    double power = 0;
    size_t counted = 0;
    for (const auto& range : speech) {
        for (size_t i = range.first; i < range.second; ++i) power += double(stream[i]) * stream[i];
        counted += range.second - range.first;
    }
    double speechRms = std::sqrt(power / std::max<size_t>(counted, 1));
    std::vector<float> noise = pinkNoise(stream.size(), 12345);
    double noisePower = 0;
    for (float n : noise) noisePower += double(n) * n;
    double gain = speechRms / std::pow(10.0, snr / 20) / std::sqrt(noisePower / noise.size());
    std::vector<int16_t> noisy(stream.size());
    for (size_t i = 0; i < stream.size(); ++i) {
        double v = stream[i] + noise[i] * gain;
        noisy[i] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, std::round(v))));
    }

    // ---- the engine ----
    bool copied = !threshold.empty() || !overrides.empty();
    std::string usedManifest = copied ? withThresholds(manifest, threshold, overrides) : manifest;
    NorvoApi_SetLoggingCallback(onLog);
    NorvoApi_SetEnumeratedResultCallback(onWake);
    NorvoApi_SetLocalCommandEnumeratedResultCallback(onCommand);
    if (NorvoModelSet_New("eval", usedManifest.c_str(), "") != NORVO_SUCCESS) return 1;
    const char* decoders[] = {"clean", "noisy"};
    const std::vector<int16_t>* streams[] = {&stream, &noisy};
    for (const char* decoder : decoders) {
        if (NorvoDecoder_NewSpotterAudioDecoder(
                    decoder, "eval", "norvo",
                    NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(),
                    "{}") != NORVO_SUCCESS) {
            return 1;
        }
    }
    const size_t chunk = 320;
    for (size_t at = 0; at < stream.size(); at += chunk) {
        size_t count = std::min(chunk, stream.size() - at);
        for (int d = 0; d < 2; ++d) {
            if (!push(decoders[d], *streams[d], at, count)) return 1;
        }
        // Keep the queues well below their capacity: the decoders run as fast as they can.
        if ((at / chunk) % 200 == 199) {
            for (const char* decoder : decoders) norvo_ps::waitUntilDecoded(decoder, 60000);
        }
    }
    for (const char* decoder : decoders) {
        NorvoDecoder_SessionEnd(decoder);
        norvo_ps::waitUntilDecoded(decoder, 60000);
    }

    // ---- the figures ----
    printf("| keywords | audio | spoken | heard | recall | false alarms | in unrelated speech | "
           "false alarms per hour |\n");
    printf("|---|---|---|---|---|---|---|---|\n");
    Outcome outcomes[2][2];
    for (int kind = 0; kind < 2; ++kind) {
        for (int d = 0; d < 2; ++d) {
            outcomes[kind][d] = score(decoders[d], items, kind == 1);
            const Outcome& o = outcomes[kind][d];
            if (o.positives == 0) continue;
            double hours = o.unrelatedSeconds / 3600;
            printf("| %s | %s | %d | %d | %.1f%% | %d | %.1f min | %.1f |\n",
                   kind == 0 ? "wake phrases" : "local commands",
                   d == 0 ? "clean"
                          : ("pink noise " + std::to_string(int(snr)) + " dB SNR").c_str(),
                   o.positives, o.heard, 100.0 * o.heard / std::max(o.positives, 1), o.falseAlarms,
                   o.unrelatedSeconds / 60, o.falseAlarms / std::max(hours, 1e-9));
        }
    }
    for (int d = 0; d < 2; ++d) {
        const Outcome& o = outcomes[0][d];
        norvo_ps::DecoderStats stats;
        norvo_ps::decoderStats(decoders[d], &stats);
        printf("\n%s, wake phrases: reported %.0f ms of audio after the phrase ended (median; 90th "
               "percentile %.0f ms, most %.0f ms); range error at the start %+.0f ms (median; 10th "
               "to 90th percentile %+.0f to %+.0f ms), at the end %+.0f ms (%+.0f to %+.0f ms); "
               "real-time factor %.4f\n",
               decoders[d], median(o.latencyMs), percentile(o.latencyMs, 0.9),
               percentile(o.latencyMs, 1), median(o.beginErrorMs), percentile(o.beginErrorMs, 0.1),
               percentile(o.beginErrorMs, 0.9), median(o.endErrorMs), percentile(o.endErrorMs, 0.1),
               percentile(o.endErrorMs, 0.9),
               stats.decodeCpuNs / 1e9 / (stats.decodedFrames / double(kRate)));
        // Score quartiles of hits and false alarms per keyword: where a threshold could go.
        for (int kind = 0; verbose && kind < 2; ++kind) {
            std::map<std::string, std::vector<double>> hits, alarms;
            for (const auto& h : outcomes[kind][d].hitScores) hits[h.first].push_back(h.second);
            for (const auto& a : outcomes[kind][d].alarmScores) alarms[a.first].push_back(a.second);
            for (auto& entry : hits) {
                std::vector<double>& h = entry.second;
                std::vector<double>& a = alarms[entry.first];
                std::sort(h.begin(), h.end());
                std::sort(a.begin(), a.end());
                auto q = [](const std::vector<double>& v, double f) {
                    return v.empty() ? 0.0 : v[static_cast<size_t>(f * (v.size() - 1))];
                };
                printf("  %s scores: heard %zu [min %.1f, q1 %.1f, median %.1f]; false alarms %zu "
                       "[median %.1f, q3 %.1f, max %.1f]\n",
                       entry.first.c_str(), h.size(), q(h, 0), q(h, 0.25), q(h, 0.5), a.size(),
                       q(a, 0.5), q(a, 0.75), q(a, 1));
            }
        }
        for (int kind = 0; verbose && kind < 2; ++kind) {
            for (const std::string& m : outcomes[kind][d].missed)
                printf("  missed %s\n", m.c_str());
            for (const std::string& a : outcomes[kind][d].alarms)
                printf("  false alarm %s\n", a.c_str());
        }
    }
    for (const char* decoder : decoders) NorvoDecoder_Delete(decoder);
    NorvoModelSet_Delete("eval");
    if (copied) unlink(usedManifest.c_str());
    return 0;
}
