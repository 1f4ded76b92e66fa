// Measures the PocketSphinx engine's accuracy on an evaluation set under several acoustic
// conditions: recall of the wake phrases and of the local commands, false alarms per hour of
// unrelated speech, and how many near-miss sentences fire a keyword. It can also sweep each
// keyword's threshold on one group of voices, suggest thresholds, report the other groups with
// them, and write the recall against false alarms curves for gnuplot. scripts/evaluate.sh builds
// the set with several synthesisers and runs this program; see it for the set itself.
//
//   engine_eval --manifest M --playlist P [--conditions C,C...] [--babble WAV] [--level DBFS]
//               [--jobs N] [--threshold T] [--set KEYWORD=T]... [--floor DECADES]
//               [--tune GROUP] [--max-fa-per-hour F] [--max-near-miss FRACTION] [--det FOLDER]
//               [--verbose]
//
// The playlist has one line per item or directive, paths absolute or relative to its folder:
//   group <NAME>                            the voice group of the items below (default "all")
//   voice <NAME>                            the voice of the items below
//   wake <KEYWORD> <phrase.wav> <request.wav>  a wake phrase alone, a pause, then a request
//   inside <KEYWORD> <sentence.wav>         a sentence with a wake phrase in it
//   start <KEYWORD> <clip.wav>              a clip that begins with a wake phrase; the decoder's
//                                           session starts again right where it begins
//   command <KEYWORD> <command.wav>         a local command said alone
//   nearmiss wake|command <sentence.wav>    a sentence that must fire no wake phrase (or command):
//                                           one that sounds like a phrase, or uses a command word
//   speech <sentence.wav>                   unrelated speech
// Every WAV is 16 kHz mono. The items are laid end to end, with pauses, into one stream; each
// condition turns it into another stream (sox effects, then noise, then a level change), decoded
// by a decoder of its own through the engine's C API, as fast as it goes, with every keyword of the
// manifest enabled (as the service enables them). A positive item counts as heard when a detection
// of its keyword overlaps it (widened by 200 ms); every other detection is a false alarm, counted
// per hour when it falls on unrelated speech, as a firing when it falls on a near-miss sentence of
// its kind, and as "other" elsewhere (in a request, a pause, or a positive of another keyword).
//
// Conditions, joined with '+' (e.g. reverb+pink20): clean; white, pink, brown or babble noise at an
// SNR in dB against the speech (white10; babble needs --babble, a 16 kHz mono WAV of mixed talk,
// looped); reverb (sox reverb); narrowband (8 kHz telephone band); quiet<DB>, the whole stream that
// many dB lower. The default is every one evaluate.sh uses.
//
// --level DBFS scales every clip's speech to that RMS level first, so that an SNR means the same
// for every voice. --threshold T replaces every keyword's threshold, --set KEYWORD=T one of them.
// --floor D decodes with every threshold D decades lower and filters the results by score (a
// result's score is at least log10 of the threshold it passed), so that one decode gives the
// figures for any higher threshold. They are close to a decode at that threshold, not the same:
// every report restarts the recognizer, and the extra reports at the floor change a little what
// follows. So the first condition is also decoded at the thresholds themselves and the two are
// compared (the "Check" line). --tune GROUP (a floor of 10 decades unless given) sweeps each
// keyword's threshold in whole decades on GROUP's items, all conditions pooled: of the thresholds
// with at most --max-fa-per-hour false alarms (default 1) and at most --max-near-miss of its
// near-miss sentences firing (default 0.1), those with the best recall form a range, and its middle
// is chosen; every group is then reported with the chosen thresholds. --det FOLDER writes
// det-<KEYWORD>.dat and det.gp there: recall against false alarms per hour and against near-miss
// firings as the threshold varies (gnuplot det.gp, run in FOLDER, draws det.png).
// --verbose lists the misses and false alarms of every condition.
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kRate = 16000;
constexpr double kNone = -std::numeric_limits<double>::infinity();
const char* const kDefaultConditions =
        "clean,white20,white10,white5,pink20,pink10,pink5,brown20,brown10,brown5,babble20,"
        "babble10,babble5,reverb,reverb+pink20,narrowband,quiet20";

struct Keyword {
    std::string name;
    bool command = false;
    std::string threshold;  // as the manifest has it
    double log10 = 0;       // log10 of the threshold results are scored against
};

enum class Kind { Wake, Inside, Start, Command, NearWake, NearCommand, Speech };

struct Item {
    Kind kind = Kind::Speech;
    int keyword = -1;   // positives: index into the keywords
    int64_t begin = 0;  // the phrase (or sentence) range in the stream
    int64_t end = 0;
    std::string source;
    int group = 0;
    int voice = 0;
    bool positive() const { return keyword >= 0; }
};

struct Condition {
    std::string name;     // as given, e.g. reverb+pink20
    std::string label;    // e.g. reverb + pink 20 dB
    std::string effects;  // sox effects
    std::string noise;    // white, pink, brown, babble or empty
    double snr = 0;
    double gainDb = 0;
};

struct Result {
    int keyword;
    int64_t begin;
    int64_t end;
    int64_t decidedAt;
    double score;
};

// One condition's decode, scored once at the decoding thresholds: whatever a higher threshold
// would give is a matter of filtering these by score.
struct Evidence {
    std::vector<Result> results;
    std::vector<int> best;  // per item: its best-scoring detection of its keyword, or -1
    struct Alarm {
        int result;
        int item;  // the item it overlaps most, -1 for a pause
    };
    std::vector<Alarm> alarms;  // every detection that is no item's best
    norvo_ps::DecoderStats stats;
    double seconds = 0;
    double score(int item) const { return best[item] < 0 ? kNone : results[best[item]].score; }
};

struct Stream {
    std::vector<int16_t> samples;
    std::vector<Item> items;
    std::vector<std::pair<size_t, size_t>> speech;  // ranges that count towards the speech level
    std::vector<size_t> cuts;                       // where a new session starts
    std::vector<std::string> groups{"all"};
    std::vector<std::string> voices{""};
};

std::vector<Keyword> gKeywords;
std::mutex gLock;
std::map<std::string, std::vector<Result>> gResults;  // by decoder id

double scoreOf(const NorvoEnumeratedResult* r) {
    std::string blob(reinterpret_cast<const char*>(r->blob.data), r->blob.size);
    size_t at = blob.find("\"score\":");
    return at == std::string::npos ? 0 : atof(blob.c_str() + at + 8);
}

void record(NorvoDecoderId id, NorvoEnumeratedResult* r) {
    int keyword = -1;
    for (size_t k = 0; k < gKeywords.size(); ++k) {
        if (gKeywords[k].name == r->keyword) keyword = static_cast<int>(k);
    }
    if (keyword < 0) return;
    std::lock_guard<std::mutex> guard(gLock);
    gResults[id].push_back(
            Result{keyword, r->beginSampleIndex, r->endSampleIndex, r->tailValue, scoreOf(r)});
}
void onWake(NorvoDecoderId id, NorvoEnumeratedResult* r) {
    record(id, r);
}
void onCommand(NorvoDecoderId id, NorvoEnumeratedResult* r) {
    record(id, r);
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

bool writeWav(const std::string& path, const std::vector<int16_t>& samples) {
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr) {
        fprintf(stderr, "cannot write %s: %s\n", path.c_str(), sf_strerror(nullptr));
        return false;
    }
    sf_count_t written = sf_writef_short(file, samples.data(), samples.size());
    sf_close(file);
    return written == static_cast<sf_count_t>(samples.size());
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

// Appends a clip's speech, at the given RMS level (dBFS) if there is one, without clipping.
void append(std::vector<int16_t>* stream, const std::vector<int16_t>& clip, size_t first,
            size_t last, double levelDbfs) {
    double gain = 1;
    if (!std::isnan(levelDbfs) && last > first) {
        double power = 0;
        int peak = 1;
        for (size_t i = first; i < last; ++i) {
            power += double(clip[i]) * clip[i];
            peak = std::max(peak, std::abs(int(clip[i])));
        }
        double rms = std::sqrt(power / double(last - first));
        gain = rms > 0 ? 32768 * std::pow(10.0, levelDbfs / 20) / rms : 1;
        gain = std::min(gain, 32767.0 / peak);
    }
    for (size_t i = first; i < last; ++i) {
        stream->push_back(static_cast<int16_t>(std::lround(clip[i] * gain)));
    }
}
void silence(std::vector<int16_t>* stream, double seconds) {
    stream->insert(stream->end(), static_cast<size_t>(seconds * kRate), 0);
}

int indexOf(std::vector<std::string>* names, const std::string& name) {
    auto at = std::find(names->begin(), names->end(), name);
    if (at != names->end()) return static_cast<int>(at - names->begin());
    names->push_back(name);
    return static_cast<int>(names->size()) - 1;
}

int keywordIndex(const std::string& name) {
    for (size_t k = 0; k < gKeywords.size(); ++k) {
        if (gKeywords[k].name == name) return static_cast<int>(k);
    }
    return -1;
}

bool readPlaylist(const std::string& playlist, double levelDbfs, Stream* out) {
    std::ifstream list(playlist);
    if (!list) {
        fprintf(stderr, "cannot read %s\n", playlist.c_str());
        return false;
    }
    std::string folder = playlist.substr(0, playlist.rfind('/') + 1);
    std::vector<int16_t>& stream = out->samples;
    int group = 0, voice = 0;
    std::string line;
    int number = 0;
    silence(&stream, 1.0);
    // Reads a clip and appends its speech as one item of the given kind.
    auto add = [&](Kind kind, int keyword, const std::string& file) {
        std::vector<int16_t> clip;
        if (!readWav(resolve(folder, file), &clip)) return false;
        size_t first, last;
        speechRange(clip, &first, &last);
        Item item;
        item.kind = kind;
        item.keyword = keyword;
        item.source = file;
        item.group = group;
        item.voice = voice;
        item.begin = static_cast<int64_t>(stream.size());
        append(&stream, clip, first, last, levelDbfs);
        item.end = static_cast<int64_t>(stream.size()) - 1;
        out->speech.emplace_back(item.begin, stream.size());
        out->items.push_back(item);
        return true;
    };
    while (std::getline(list, line)) {
        ++number;
        std::istringstream fields(line);
        std::string kind, name, file, request;
        fields >> kind;
        if (kind.empty() || kind[0] == '#') continue;
        fields >> name;
        int keyword = keywordIndex(name);
        bool ok = true;
        if (kind == "group") {
            group = indexOf(&out->groups, name);
        } else if (kind == "voice") {
            voice = indexOf(&out->voices, name);
        } else if (kind == "speech") {
            ok = add(Kind::Speech, -1, name);
            silence(&stream, 0.35);
        } else if (kind == "nearmiss" && (name == "wake" || name == "command") && fields >> file) {
            silence(&stream, 0.2);
            ok = add(name == "wake" ? Kind::NearWake : Kind::NearCommand, -1, file);
            silence(&stream, 0.5);
        } else if (keyword < 0 &&
                   (kind == "wake" || kind == "inside" || kind == "start" || kind == "command")) {
            fprintf(stderr, "%s:%d: keyword '%s' is not in the manifest\n", playlist.c_str(),
                    number, name.c_str());
            return false;
        } else if (keyword >= 0 && gKeywords[keyword].command != (kind == "command")) {
            fprintf(stderr, "%s:%d: %s is a %s\n", playlist.c_str(), number, name.c_str(),
                    gKeywords[keyword].command ? "local command" : "wake phrase");
            return false;
        } else if (kind == "wake" && fields >> file >> request) {
            ok = add(Kind::Wake, keyword, file);
            silence(&stream, 0.4);
            std::vector<int16_t> clip;
            if (!readWav(resolve(folder, request), &clip)) return false;
            size_t first, last, at = stream.size();
            speechRange(clip, &first, &last);
            append(&stream, clip, first, last, levelDbfs);
            out->speech.emplace_back(at, stream.size());
            silence(&stream, 0.8);
        } else if (kind == "inside" && fields >> file) {
            silence(&stream, 0.2);
            ok = add(Kind::Inside, keyword, file);
            silence(&stream, 0.6);
        } else if (kind == "start" && fields >> file) {
            silence(&stream, 0.3);
            out->cuts.push_back(stream.size());
            ok = add(Kind::Start, keyword, file);
            silence(&stream, 0.6);
        } else if (kind == "command" && fields >> file) {
            silence(&stream, 0.4);
            ok = add(Kind::Command, keyword, file);
            silence(&stream, 0.8);
        } else {
            fprintf(stderr, "%s:%d: cannot read '%s'\n", playlist.c_str(), number, line.c_str());
            return false;
        }
        if (!ok) return false;
    }
    silence(&stream, 1.0);
    return true;
}

// ---- the manifest ----

bool readKeywords(const std::string& manifestPath) {
    std::ifstream in(manifestPath);
    if (!in) {
        fprintf(stderr, "cannot read %s\n", manifestPath.c_str());
        return false;
    }
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        Keyword keyword;
        std::string kind;
        fields >> kind;
        if (kind != "wake" && kind != "command") continue;
        fields >> keyword.name >> keyword.threshold;
        keyword.command = kind == "command";
        keyword.log10 = std::log10(atof(keyword.threshold.c_str()));
        gKeywords.push_back(keyword);
    }
    return true;
}

// A threshold 10^log10 as a manifest writes it: 1e-25, or 3.2e-25 between whole decades.
std::string thresholdText(double log10) {
    char text[32];
    double whole = std::round(log10);
    if (std::fabs(log10 - whole) < 1e-9) {
        snprintf(text, sizeof(text), "1e%d", static_cast<int>(whole));
    } else {
        snprintf(text, sizeof(text), "%.6g", std::pow(10.0, log10));
    }
    return text;
}

// A copy of the manifest with the given thresholds (and absolute paths), in a temporary file.
std::string withThresholds(const std::string& manifestPath, const std::vector<double>& log10s) {
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
            int k = keywordIndex(name);
            out << kind << " " << name << " " << thresholdText(log10s[k]) << rest << "\n";
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

// ---- conditions ----

bool parseCondition(const std::string& name, Condition* out) {
    out->name = name;
    std::stringstream parts(name);
    std::string part;
    std::vector<std::string> labels;
    while (std::getline(parts, part, '+')) {
        size_t digits = part.find_first_of("0123456789");
        std::string word = part.substr(0, digits);
        double number = digits == std::string::npos ? 0 : atof(part.c_str() + digits);
        char label[64];
        if (part == "clean") {
            snprintf(label, sizeof(label), "clean");
        } else if (part == "reverb") {
            out->effects += " reverb 50 50 100";
            snprintf(label, sizeof(label), "reverb");
        } else if (part == "narrowband") {
            out->effects += " lowpass 3400 rate 8k rate 16k";
            snprintf(label, sizeof(label), "narrow-band");
        } else if (word == "quiet" && digits != std::string::npos) {
            out->gainDb -= number;
            snprintf(label, sizeof(label), "%g dB quieter", number);
        } else if ((word == "white" || word == "pink" || word == "brown" || word == "babble") &&
                   digits != std::string::npos && out->noise.empty()) {
            out->noise = word;
            out->snr = number;
            snprintf(label, sizeof(label), "%s %g dB", word.c_str(), number);
        } else {
            fprintf(stderr, "unknown condition '%s' in '%s'\n", part.c_str(), name.c_str());
            return false;
        }
        labels.push_back(label);
    }
    for (size_t i = 0; i < labels.size(); ++i) out->label += (i ? " + " : "") + labels[i];
    return !labels.empty();
}

// Deterministic noise of a kind: white, pink (Paul Kellet's economy filter over white) or brown
// (leaky integral of white).
std::vector<double> noiseOf(const std::string& kind, size_t n, uint32_t seed) {
    std::vector<double> noise(n);
    uint32_t state = seed;
    double b0 = 0, b1 = 0, b2 = 0;
    for (size_t i = 0; i < n; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        double white = (state / 4294967296.0) * 2 - 1;
        if (kind == "pink") {
            b0 = 0.99765 * b0 + white * 0.0990460;
            b1 = 0.96300 * b1 + white * 0.2965164;
            b2 = 0.57000 * b2 + white * 1.0526913;
            noise[i] = b0 + b1 + b2 + white * 0.1848;
        } else if (kind == "brown") {
            b0 = 0.998 * b0 + white;
            noise[i] = b0;
        } else {
            noise[i] = white;
        }
    }
    return noise;
}

// The stream as a condition makes it: sox effects, noise at the SNR against the speech (pauses
// excluded), then the level change.
bool conditioned(const Stream& clean, const Condition& c, const std::vector<int16_t>& babble,
                 const std::string& scratch, std::vector<int16_t>* out) {
    *out = clean.samples;
    if (!c.effects.empty()) {
        std::string in = scratch + "-in.wav", processed = scratch + "-out.wav";
        std::string command = "sox -q -G '" + in + "' -c 1 '" + processed + "'" + c.effects;
        if (!writeWav(in, clean.samples) || std::system(command.c_str()) != 0 ||
            !readWav(processed, out)) {
            fprintf(stderr, "condition %s: '%s' failed\n", c.name.c_str(), command.c_str());
            return false;
        }
        unlink(in.c_str());
        unlink(processed.c_str());
        out->resize(clean.samples.size(), 0);
    }
    std::vector<double> mixed(out->begin(), out->end());
    if (!c.noise.empty()) {
        double power = 0;
        size_t counted = 0;
        for (const auto& range : clean.speech) {
            for (size_t i = range.first; i < range.second; ++i) power += mixed[i] * mixed[i];
            counted += range.second - range.first;
        }
        double speechRms = std::sqrt(power / double(std::max<size_t>(counted, 1)));
        std::vector<double> noise;
        if (c.noise == "babble") {
            noise.resize(mixed.size());
            for (size_t i = 0; i < noise.size(); ++i) noise[i] = babble[i % babble.size()];
        } else {
            noise = noiseOf(c.noise, mixed.size(), 12345);
        }
        double noisePower = 0;
        for (double n : noise) noisePower += n * n;
        double gain = speechRms / std::pow(10.0, c.snr / 20) /
                      std::sqrt(noisePower / double(std::max<size_t>(noise.size(), 1)));
        for (size_t i = 0; i < mixed.size(); ++i) mixed[i] += noise[i] * gain;
    }
    double level = std::pow(10.0, c.gainDb / 20);
    for (size_t i = 0; i < mixed.size(); ++i) {
        double v = std::round(mixed[i] * level);
        (*out)[i] = static_cast<int16_t>(std::max(-32768.0, std::min(32767.0, v)));
    }
    return true;
}

// ---- decoding ----

bool push(const char* decoder, const std::vector<int16_t>& stream, size_t at, size_t count) {
    char metadata[128];
    snprintf(metadata, sizeof(metadata), "{ \"sample_count\":%zu, \"first_sample_index\":%zu }",
             count, at);
    NorvoAudioEvent event{"samples", metadata, stream.data() + at, 0};
    NorvoStatus status = NorvoDecoder_PushAudioEvent(decoder, &event);
    if (status != NORVO_SUCCESS) fprintf(stderr, "push to %s failed: %d\n", decoder, status);
    return status == NORVO_SUCCESS;
}

// Pushes the whole stream to a new decoder, a session ending at every cut, and waits for it.
bool decode(const std::string& id, const char* modelSet, const std::vector<int16_t>& stream,
            const std::vector<size_t>& cuts, norvo_ps::DecoderStats* stats) {
    if (NorvoDecoder_NewSpotterAudioDecoder(id.c_str(), modelSet, "norvo",
                                            NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(),
                                            "{}") != NORVO_SUCCESS) {
        return false;
    }
    const size_t chunk = 320;
    size_t cut = 0, pushes = 0;
    bool ok = true;
    for (size_t at = 0; ok && at < stream.size();) {
        while (cut < cuts.size() && cuts[cut] <= at) {
            if (cuts[cut++] == at && at > 0) NorvoDecoder_SessionEnd(id.c_str());
        }
        size_t count = std::min(chunk, stream.size() - at);
        if (cut < cuts.size()) count = std::min(count, cuts[cut] - at);
        ok = push(id.c_str(), stream, at, count);
        at += count;
        // Keep the queue well below its capacity: the decoder runs as fast as it can.
        if (++pushes % 200 == 0) ok = ok && norvo_ps::waitUntilDecoded(id, 60000);
    }
    NorvoDecoder_SessionEnd(id.c_str());
    ok = ok && norvo_ps::waitUntilDecoded(id, 60000);
    norvo_ps::decoderStats(id, stats);
    NorvoDecoder_Delete(id.c_str());
    return ok;
}

// Which item each detection belongs to: the positive it hears best, or the item it overlaps most.
Evidence assess(const std::vector<Item>& items, std::vector<Result> results) {
    Evidence e;
    e.results = std::move(results);
    e.best.assign(items.size(), -1);
    std::vector<bool> used(e.results.size(), false);
    const int64_t slack = kRate / 5;
    for (size_t i = 0; i < items.size(); ++i) {
        const Item& item = items[i];
        if (!item.positive()) continue;
        for (size_t r = 0; r < e.results.size(); ++r) {
            const Result& result = e.results[r];
            if (used[r] || result.keyword != item.keyword) continue;
            if (result.begin <= item.end + slack && item.begin - slack <= result.end &&
                (e.best[i] < 0 || result.score > e.results[e.best[i]].score)) {
                e.best[i] = static_cast<int>(r);
            }
        }
        if (e.best[i] >= 0) used[e.best[i]] = true;
    }
    for (size_t r = 0; r < e.results.size(); ++r) {
        if (used[r]) continue;
        const Result& result = e.results[r];
        int on = -1;
        int64_t most = 0;
        for (size_t i = 0; i < items.size(); ++i) {
            int64_t overlap =
                    std::min(result.end, items[i].end) - std::max(result.begin, items[i].begin) + 1;
            if (overlap > most) {
                most = overlap;
                on = static_cast<int>(i);
            }
        }
        e.alarms.push_back(Evidence::Alarm{static_cast<int>(r), on});
    }
    return e;
}

// ---- counting ----

enum class Place { Speech, NearMiss, Other };

Place placeOf(const std::vector<Item>& items, const Evidence& e, const Evidence::Alarm& alarm) {
    if (alarm.item < 0) return Place::Other;
    Kind kind = items[alarm.item].kind;
    bool command = gKeywords[e.results[alarm.result].keyword].command;
    if (kind == Kind::Speech) return Place::Speech;
    if (kind == (command ? Kind::NearCommand : Kind::NearWake)) return Place::NearMiss;
    return Place::Other;
}

// What one selection of items (a group, a voice, or all when -1) shows at the given thresholds.
struct Tally {
    int spoken[2] = {0, 0};  // [0] wake phrases, [1] local commands
    int heard[2] = {0, 0};
    int alarms[2] = {0, 0};  // in unrelated speech
    int near[2] = {0, 0};    // near-miss sentences, and those that fired a keyword of their kind
    int fired[2] = {0, 0};
    int other[2] = {0, 0};
    double speechSeconds = 0;

    void add(const Tally& t) {
        for (int i = 0; i < 2; ++i) {
            spoken[i] += t.spoken[i];
            heard[i] += t.heard[i];
            alarms[i] += t.alarms[i];
            near[i] += t.near[i];
            fired[i] += t.fired[i];
            other[i] += t.other[i];
        }
        speechSeconds += t.speechSeconds;
    }
};

struct Selection {
    int group = -1;
    int voice = -1;
    int keyword = -1;  // one keyword's detections and items only
    bool holds(const Item& item) const {
        return (group < 0 || item.group == group) && (voice < 0 || item.voice == voice);
    }
};

Tally tally(const std::vector<Item>& items, const Evidence& e, const std::vector<double>& log10s,
            const Selection& s) {
    Tally t;
    std::vector<bool> fired(items.size(), false);
    for (size_t i = 0; i < items.size(); ++i) {
        const Item& item = items[i];
        if (!s.holds(item)) continue;
        if (item.positive()) {
            if (s.keyword >= 0 && item.keyword != s.keyword) continue;
            int kind = gKeywords[item.keyword].command ? 1 : 0;
            ++t.spoken[kind];
            if (e.score(static_cast<int>(i)) >= log10s[item.keyword]) ++t.heard[kind];
        } else if (item.kind == Kind::Speech) {
            t.speechSeconds += double(item.end - item.begin) / kRate;
        } else if (s.keyword < 0 ||
                   (item.kind == Kind::NearCommand) == gKeywords[s.keyword].command) {
            ++t.near[item.kind == Kind::NearCommand ? 1 : 0];
        }
    }
    for (const Evidence::Alarm& alarm : e.alarms) {
        const Result& r = e.results[alarm.result];
        if (r.score < log10s[r.keyword] || (s.keyword >= 0 && r.keyword != s.keyword)) continue;
        // A false alarm in a pause belongs to no one's voice; it counts for every selection.
        if (alarm.item >= 0 && !s.holds(items[alarm.item])) continue;
        int kind = gKeywords[r.keyword].command ? 1 : 0;
        switch (placeOf(items, e, alarm)) {
            case Place::Speech:
                ++t.alarms[kind];
                break;
            case Place::NearMiss:
                if (!fired[alarm.item]) ++t.fired[kind];
                fired[alarm.item] = true;
                break;
            case Place::Other:
                ++t.other[kind];
                break;
        }
    }
    return t;
}

Tally tallyAll(const std::vector<Item>& items, const std::vector<Evidence>& evidence,
               const std::vector<double>& log10s, const Selection& s) {
    Tally sum;
    for (const Evidence& e : evidence) sum.add(tally(items, e, log10s, s));
    return sum;
}

std::string percent(int part, int whole) {
    if (whole == 0) return "-";
    char text[32];
    snprintf(text, sizeof(text), "%.1f%%", 100.0 * part / whole);
    return text;
}
double perHour(int count, double seconds) {
    return seconds > 0 ? count * 3600.0 / seconds : 0;
}
std::string alarmsText(int count, double seconds) {
    if (seconds <= 0) return "-";
    char text[48];
    snprintf(text, sizeof(text), "%.1f (%d)", perHour(count, seconds), count);
    return text;
}

double percentile(std::vector<double> values, double fraction) {
    if (values.empty()) return 0;
    std::sort(values.begin(), values.end());
    return values[std::min(values.size() - 1, static_cast<size_t>(fraction * values.size()))];
}

// ---- reports ----

void conditionTable(const Stream& s, const std::vector<Condition>& conditions,
                    const std::vector<Evidence>& evidence, const std::vector<double>& log10s,
                    const std::vector<int>& groups) {
    printf("| condition | voices | wake phrases heard | commands heard | false alarms per hour, "
           "wake (count) | false alarms per hour, commands (count) | near misses firing a wake "
           "phrase | command-word sentences firing a command |\n");
    printf("|---|---|---|---|---|---|---|---|\n");
    std::vector<Tally> pooled(groups.size());
    for (size_t c = 0; c <= conditions.size(); ++c) {
        for (size_t g = 0; g < groups.size(); ++g) {
            Selection selection;
            selection.group = groups[g];
            Tally t = c < conditions.size() ? tally(s.items, evidence[c], log10s, selection)
                                            : pooled[g];
            if (c < conditions.size()) pooled[g].add(t);
            printf("| %s | %s | %s | %s | %s | %s | %s | %s |\n",
                   g > 0                   ? ""
                   : c < conditions.size() ? conditions[c].label.c_str()
                                           : "**all conditions**",
                   s.groups[groups[g]].c_str(), percent(t.heard[0], t.spoken[0]).c_str(),
                   percent(t.heard[1], t.spoken[1]).c_str(),
                   alarmsText(t.alarms[0], t.speechSeconds).c_str(),
                   alarmsText(t.alarms[1], t.speechSeconds).c_str(),
                   percent(t.fired[0], t.near[0]).c_str(), percent(t.fired[1], t.near[1]).c_str());
        }
    }
    printf("\nPer condition:");
    for (size_t g = 0; g < groups.size(); ++g) {
        Selection selection;
        selection.group = groups[g];
        Tally t = tally(s.items, evidence[0], log10s, selection);
        printf("%s %s %d wake phrases, %d commands, %.1f min of unrelated speech, %d near misses, "
               "%d command-word sentences",
               g ? ";" : "", s.groups[groups[g]].c_str(), t.spoken[0], t.spoken[1],
               t.speechSeconds / 60, t.near[0], t.near[1]);
    }
    printf(".\n");
}

void keywordTable(const Stream& s, const std::vector<Evidence>& evidence,
                  const std::vector<double>& log10s, const std::vector<int>& groups) {
    printf("| keyword | threshold | voices | heard | false alarms per hour (count) | near-miss "
           "sentences firing it | other false alarms |\n");
    printf("|---|---|---|---|---|---|---|\n");
    for (size_t k = 0; k < gKeywords.size(); ++k) {
        for (size_t g = 0; g < groups.size(); ++g) {
            Selection selection;
            selection.group = groups[g];
            selection.keyword = static_cast<int>(k);
            Tally t = tallyAll(s.items, evidence, log10s, selection);
            int kind = gKeywords[k].command ? 1 : 0;
            printf("| %s | %s | %s | %s | %s | %s | %d |\n", g ? "" : gKeywords[k].name.c_str(),
                   g ? "" : thresholdText(log10s[k]).c_str(), s.groups[groups[g]].c_str(),
                   percent(t.heard[kind], t.spoken[kind]).c_str(),
                   alarmsText(t.alarms[kind], t.speechSeconds).c_str(),
                   percent(t.fired[kind], t.near[kind]).c_str(), t.other[kind]);
        }
    }
}

void voiceTable(const Stream& s, const std::vector<Evidence>& evidence,
                const std::vector<double>& log10s) {
    printf("| voice | group | wake phrases heard, clean | all conditions | commands heard, clean "
           "| all conditions | false alarms per hour, all conditions |\n");
    printf("|---|---|---|---|---|---|---|\n");
    for (size_t v = 0; v < s.voices.size(); ++v) {
        Selection selection;
        selection.voice = static_cast<int>(v);
        Tally clean = tally(s.items, evidence[0], log10s, selection);
        Tally all = tallyAll(s.items, evidence, log10s, selection);
        if (s.voices[v].empty() || clean.spoken[0] + clean.spoken[1] + all.speechSeconds == 0) {
            continue;
        }
        int group = 0;
        for (const Item& item : s.items) {
            if (item.voice == static_cast<int>(v)) group = item.group;
        }
        printf("| %s | %s | %s | %s | %s | %s | %.1f |\n", s.voices[v].c_str(),
               s.groups[group].c_str(), percent(clean.heard[0], clean.spoken[0]).c_str(),
               percent(all.heard[0], all.spoken[0]).c_str(),
               percent(clean.heard[1], clean.spoken[1]).c_str(),
               percent(all.heard[1], all.spoken[1]).c_str(),
               perHour(all.alarms[0] + all.alarms[1], all.speechSeconds));
    }
}

// Wake phrases by how they were said: alone, inside a sentence, at the start of a clip.
void kindTable(const Stream& s, const std::vector<Evidence>& evidence,
               const std::vector<double>& log10s, const std::vector<int>& groups) {
    const Kind kinds[] = {Kind::Wake, Kind::Inside, Kind::Start};
    printf("| voices | said alone, clean | all conditions | inside a sentence, clean | all "
           "conditions | at the start of a clip, clean | all conditions |\n");
    printf("|---|---|---|---|---|---|---|\n");
    for (int g : groups) {
        printf("| %s |", s.groups[g].c_str());
        for (Kind kind : kinds) {
            for (size_t pooled = 0; pooled < 2; ++pooled) {
                int spoken = 0, heard = 0;
                for (size_t c = 0; c < (pooled ? evidence.size() : 1); ++c) {
                    for (size_t i = 0; i < s.items.size(); ++i) {
                        const Item& item = s.items[i];
                        if (item.kind != kind || item.group != g) continue;
                        ++spoken;
                        if (evidence[c].score(static_cast<int>(i)) >= log10s[item.keyword]) ++heard;
                    }
                }
                printf(" %s |", percent(heard, spoken).c_str());
            }
        }
        printf("\n");
    }
}

void timingLine(const Stream& s, const Condition& c, const Evidence& e,
                const std::vector<double>& log10s) {
    std::vector<double> latency, beginError, endError;
    for (size_t i = 0; i < s.items.size(); ++i) {
        const Item& item = s.items[i];
        if (item.kind != Kind::Wake || e.score(static_cast<int>(i)) < log10s[item.keyword]) {
            continue;
        }
        const Result& r = e.results[e.best[i]];
        latency.push_back(double(r.decidedAt - item.end) * 1000 / kRate);
        beginError.push_back(double(r.begin - item.begin) * 1000 / kRate);
        endError.push_back(double(r.end - item.end) * 1000 / kRate);
    }
    if (latency.empty()) return;
    printf("%s, wake phrases said alone: reported %.0f ms of audio after the phrase ended "
           "(median; 90th percentile %.0f ms, most %.0f ms); range error at the start %+.0f ms "
           "(median; 10th to 90th percentile %+.0f to %+.0f ms), at the end %+.0f ms (%+.0f to "
           "%+.0f ms); real-time factor %.4f\n",
           c.label.c_str(), percentile(latency, 0.5), percentile(latency, 0.9),
           percentile(latency, 1), percentile(beginError, 0.5), percentile(beginError, 0.1),
           percentile(beginError, 0.9), percentile(endError, 0.5), percentile(endError, 0.1),
           percentile(endError, 0.9),
           e.stats.decodeCpuNs / 1e9 / (e.stats.decodedFrames / double(kRate)));
}

void verboseLists(const Stream& s, const Condition& c, const Evidence& e,
                  const std::vector<double>& log10s) {
    for (size_t i = 0; i < s.items.size(); ++i) {
        const Item& item = s.items[i];
        if (item.positive() && e.score(static_cast<int>(i)) < log10s[item.keyword]) {
            char best[48] = "nothing decoded";
            int at = static_cast<int>(i);
            if (e.best[i] >= 0) snprintf(best, sizeof(best), "best score %.1f", e.score(at));
            printf("  %s: missed %s %s (%s)\n", c.label.c_str(),
                   gKeywords[item.keyword].name.c_str(), item.source.c_str(), best);
        }
    }
    for (const Evidence::Alarm& alarm : e.alarms) {
        const Result& r = e.results[alarm.result];
        if (r.score < log10s[r.keyword]) continue;
        printf("  %s: false alarm %s at %.2f s (during %s), score %.1f\n", c.label.c_str(),
               gKeywords[r.keyword].name.c_str(), double(r.begin) / kRate,
               alarm.item < 0 ? "a pause" : s.items[alarm.item].source.c_str(), r.score);
    }
}

// ---- thresholds ----

struct Choice {
    double log10;
    enum { Chosen, AtFloor, NeverHeard, NoneMeets } outcome;
};

// A whole-decade threshold for keyword k from the group's items, all conditions pooled. Recall,
// false alarms and near-miss firings only fall as the threshold rises: the lowest threshold that
// meets both targets has the best recall, and so do the ones above it up to the next lost hit. The
// choice is the middle of that range, as far from the false alarms as from the hits.
Choice choose(const Stream& s, const std::vector<Evidence>& evidence, std::vector<double> log10s,
              int k, int group, double decodeLog10, double maxPerHour, double maxNearMiss) {
    const double current = log10s[k];
    double highest = decodeLog10;
    for (const Evidence& e : evidence) {
        for (const Result& r : e.results) {
            if (r.keyword == k) highest = std::max(highest, r.score);
        }
    }
    Selection selection;
    selection.group = group;
    selection.keyword = k;
    int kind = gKeywords[k].command ? 1 : 0;
    const double first = std::ceil(decodeLog10 - 1e-9), last = std::ceil(highest);
    int bestHeard = -1;
    double low = 0, high = 0;
    for (double t = first; t <= last; t += 1) {
        log10s[k] = t;
        Tally tally = tallyAll(s.items, evidence, log10s, selection);
        if (bestHeard < 0) {
            bool fewAlarms = perHour(tally.alarms[kind], tally.speechSeconds) <= maxPerHour;
            bool fewNear =
                    tally.near[kind] == 0 || tally.fired[kind] <= maxNearMiss * tally.near[kind];
            if (!fewAlarms || !fewNear) continue;
            bestHeard = tally.heard[kind];
            low = t;
        }
        if (tally.heard[kind] < bestHeard) break;
        high = t;
    }
    if (bestHeard < 0) return Choice{last + 1, Choice::NoneMeets};
    if (bestHeard == 0) return Choice{current, Choice::NeverHeard};
    double middle = low + std::floor((high - low) / 2);
    return Choice{middle, low == first ? Choice::AtFloor : Choice::Chosen};
}

// Recall against false alarms per hour of unrelated speech and against the share of near-miss
// sentences firing (all conditions pooled), per group, as the threshold of one keyword goes from
// the decoding threshold to above its highest score: a data file per keyword and a gnuplot script
// that draws them all into det.png, a column per keyword.
void writeDet(const std::string& folder, const Stream& s, const std::vector<Evidence>& evidence,
              const std::vector<int>& groups, const std::vector<double>& decodeLog10s,
              const std::vector<double>& usedLog10s, const std::vector<double>& chosenLog10s) {
    for (size_t k = 0; k < gKeywords.size(); ++k) {
        std::string path = folder + "/det-" + gKeywords[k].name + ".dat";
        FILE* dat = fopen(path.c_str(), "w");
        if (dat == nullptr) {
            fprintf(stderr, "cannot write %s\n", path.c_str());
            return;
        }
        fprintf(dat, "# %s: log10 threshold, then per group (", gKeywords[k].name.c_str());
        for (int g : groups) fprintf(dat, " %s", s.groups[g].c_str());
        fprintf(dat, " ): recall %%, false alarms per hour, near misses firing %%\n");
        std::vector<double> log10s = decodeLog10s;
        Selection selection;
        selection.keyword = static_cast<int>(k);
        int kind = gKeywords[k].command ? 1 : 0;
        double highest = decodeLog10s[k];
        for (const Evidence& e : evidence) {
            for (const Result& r : e.results) {
                if (r.keyword == static_cast<int>(k)) highest = std::max(highest, r.score);
            }
        }
        // Blocks: the curve, then the threshold evaluated, then the chosen one.
        std::vector<double> thresholds;
        for (double t = decodeLog10s[k]; t <= highest + 0.25; t += 0.25) thresholds.push_back(t);
        size_t curve = thresholds.size();
        thresholds.push_back(usedLog10s[k]);
        if (!chosenLog10s.empty()) thresholds.push_back(chosenLog10s[k]);
        for (size_t b = 0; b < thresholds.size(); ++b) {
            if (b >= curve) fprintf(dat, "\n\n");
            log10s[k] = thresholds[b];
            fprintf(dat, "%.2f", log10s[k]);
            for (int g : groups) {
                selection.group = g;
                Tally t = tallyAll(s.items, evidence, log10s, selection);
                fprintf(dat, " %.2f %.3f %.2f",
                        t.spoken[kind] ? 100.0 * t.heard[kind] / t.spoken[kind] : 0.0,
                        perHour(t.alarms[kind], t.speechSeconds),
                        t.near[kind] ? 100.0 * t.fired[kind] / t.near[kind] : 0.0);
            }
            fprintf(dat, "\n");
        }
        fclose(dat);
    }

    std::string script = folder + "/det.gp";
    FILE* gp = fopen(script.c_str(), "w");
    if (gp == nullptr) {
        fprintf(stderr, "cannot write %s\n", script.c_str());
        return;
    }
    fprintf(gp,
            "# Written by engine_eval --det; run in this folder: gnuplot det.gp\n"
            "set terminal pngcairo size %zu,800 font ',9' noenhanced\nset output 'det.png'\n"
            "set multiplot layout 2,%zu title 'Recall as the threshold varies, all conditions "
            "pooled. Open circles: the threshold evaluated; filled: the one chosen'\n"
            "set yrange [0:100]\nset grid\nset ylabel 'recall (%%)'\nset key bottom right\n",
            gKeywords.size() * 380 + 40, gKeywords.size());
    // Top row: against false alarms per hour (log scale, none drawn at 0.1); bottom row: against
    // the share of the keyword's near-miss sentences that fire it.
    for (int row = 0; row < 2; ++row) {
        fprintf(gp, row == 0 ? "set logscale x\nset xrange [0.1:1000]\n"
                               "set xlabel 'false alarms per hour of unrelated speech'\n"
                             : "unset logscale x\nset xrange [0:100]\n"
                               "set xlabel 'near-miss sentences firing it (%%)'\n");
        for (size_t k = 0; k < gKeywords.size(); ++k) {
            fprintf(gp, "set title '%s: threshold %s%s%s'\nplot ", gKeywords[k].name.c_str(),
                    thresholdText(usedLog10s[k]).c_str(), chosenLog10s.empty() ? "" : ", chosen ",
                    chosenLog10s.empty() ? "" : thresholdText(chosenLog10s[k]).c_str());
            for (size_t g = 0; g < groups.size(); ++g) {
                size_t y = 2 + 3 * g, x = row == 0 ? 3 + 3 * g : 4 + 3 * g;
                char column[48];
                if (row == 0) {
                    snprintf(column, sizeof(column), "($%zu < 0.1 ? 0.1 : $%zu)", x, x);
                } else {
                    snprintf(column, sizeof(column), "%zu", x);
                }
                fprintf(gp,
                        "%s'%s' index 0 using %s:%zu with lines lw 2 lc %zu title '%s', "
                        "'' index 1 using %s:%zu with points pt 6 ps 1.5 lc %zu notitle",
                        g ? ", " : "", g ? "" : ("det-" + gKeywords[k].name + ".dat").c_str(),
                        column, y, g + 1, s.groups[groups[g]].c_str(), column, y, g + 1);
                if (!chosenLog10s.empty()) {
                    fprintf(gp, ", '' index 2 using %s:%zu with points pt 7 ps 1.5 lc %zu notitle",
                            column, y, g + 1);
                }
            }
            fprintf(gp, "\n");
        }
    }
    fprintf(gp, "unset multiplot\n");
    fclose(gp);
}

}  // namespace

int main(int argc, char** argv) {
    std::string manifest, playlist, allThreshold, babblePath, tuneGroup, detFolder;
    std::string conditionList = kDefaultConditions;
    std::map<std::string, std::string> overrides;
    double levelDbfs = std::nan(""), floorDecades = std::nan(""), maxPerHour = 1, maxNearMiss = 0.1;
    int jobs = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
    bool verbose = false, conditionsGiven = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        bool value = i + 1 < argc;
        if (arg == "--manifest" && value)
            manifest = argv[++i];
        else if (arg == "--playlist" && value)
            playlist = argv[++i];
        else if (arg == "--conditions" && value) {
            conditionList = argv[++i];
            conditionsGiven = true;
        } else if (arg == "--babble" && value)
            babblePath = argv[++i];
        else if (arg == "--level" && value)
            levelDbfs = atof(argv[++i]);
        else if (arg == "--jobs" && value)
            jobs = std::max(1, atoi(argv[++i]));
        else if (arg == "--threshold" && value)
            allThreshold = argv[++i];
        else if (arg == "--set" && value && strchr(argv[i + 1], '=') != nullptr) {
            std::string setting = argv[++i];
            overrides[setting.substr(0, setting.find('='))] = setting.substr(setting.find('=') + 1);
        } else if (arg == "--floor" && value)
            floorDecades = std::max(0.0, atof(argv[++i]));
        else if (arg == "--tune" && value)
            tuneGroup = argv[++i];
        else if (arg == "--max-fa-per-hour" && value)
            maxPerHour = atof(argv[++i]);
        else if (arg == "--max-near-miss" && value)
            maxNearMiss = atof(argv[++i]);
        else if (arg == "--det" && value)
            detFolder = argv[++i];
        else if (arg == "--verbose")
            verbose = true;
        else {
            fprintf(stderr,
                    "usage: %s --manifest M --playlist P [--conditions C,C...] [--babble WAV] "
                    "[--level DBFS] [--jobs N] [--threshold T] [--set KEYWORD=T]... "
                    "[--floor DECADES] [--tune GROUP] [--max-fa-per-hour F] "
                    "[--max-near-miss FRACTION] [--det FOLDER] [--verbose]\n",
                    argv[0]);
            return 2;
        }
    }
    if (manifest.empty() || playlist.empty()) {
        fprintf(stderr, "need --manifest and --playlist\n");
        return 2;
    }
    if (!readKeywords(manifest)) return 1;
    bool changed = !allThreshold.empty() || !overrides.empty();
    std::vector<double> log10s;
    for (Keyword& keyword : gKeywords) {
        auto override = overrides.find(keyword.name);
        std::string text = override != overrides.end() ? override->second
                           : allThreshold.empty()      ? keyword.threshold
                                                       : allThreshold;
        double threshold = atof(text.c_str());
        if (!(threshold > 0) || !std::isfinite(threshold)) {
            fprintf(stderr, "bad threshold '%s' for %s\n", text.c_str(), keyword.name.c_str());
            return 2;
        }
        keyword.log10 = std::log10(threshold);
        keyword.threshold = thresholdText(keyword.log10);
        log10s.push_back(keyword.log10);
        overrides.erase(keyword.name);
    }
    if (!overrides.empty()) {
        fprintf(stderr, "--set %s: no such keyword in %s\n", overrides.begin()->first.c_str(),
                manifest.c_str());
        return 2;
    }
    if (std::isnan(floorDecades)) floorDecades = tuneGroup.empty() && detFolder.empty() ? 0 : 10;
    std::vector<double> decodeLog10s;
    for (double t : log10s) decodeLog10s.push_back(t - floorDecades);

    std::vector<Condition> conditions;
    std::stringstream names(conditionList);
    std::string name;
    while (std::getline(names, name, ',')) {
        Condition condition;
        if (!parseCondition(name, &condition)) return 2;
        if (condition.noise == "babble" && babblePath.empty()) {
            if (conditionsGiven) {
                fprintf(stderr, "condition %s needs --babble\n", name.c_str());
                return 2;
            }
            continue;
        }
        conditions.push_back(condition);
    }
    if (conditions.empty()) {
        fprintf(stderr, "no conditions\n");
        return 2;
    }
    std::vector<int16_t> babble;
    if (!babblePath.empty() && (!readWav(babblePath, &babble) || babble.empty())) return 1;

    // ---- the stream ----
    Stream stream;
    if (!readPlaylist(playlist, levelDbfs, &stream)) return 1;
    std::vector<int> groups;
    for (const Item& item : stream.items) {
        if (std::find(groups.begin(), groups.end(), item.group) == groups.end()) {
            groups.push_back(item.group);
        }
    }
    int tuneIndex = -1;
    if (!tuneGroup.empty()) {
        auto at = std::find(stream.groups.begin(), stream.groups.end(), tuneGroup);
        if (at == stream.groups.end()) {
            fprintf(stderr, "--tune %s: the playlist has no such group\n", tuneGroup.c_str());
            return 2;
        }
        tuneIndex = static_cast<int>(at - stream.groups.begin());
    }
    fprintf(stderr,
            "engine_eval: %zu items, %.1f min of audio per condition, %zu conditions, %d at a "
            "time\n",
            stream.items.size(), stream.samples.size() / 60.0 / kRate, conditions.size(), jobs);

    // ---- the engine ----
    // With a floor, the first condition is also decoded at the thresholds themselves, to show how
    // far filtering the floor's results by score is from what the engine does at them: a report
    // restarts the recognizer, so the extra reports at the floor change a little what follows.
    const bool check = floorDecades > 0;
    NorvoApi_SetLoggingCallback(onLog);
    NorvoApi_SetEnumeratedResultCallback(onWake);
    NorvoApi_SetLocalCommandEnumeratedResultCallback(onCommand);
    for (int m = 0; m < (check ? 2 : 1); ++m) {
        std::string path = withThresholds(manifest, m == 0 ? decodeLog10s : log10s);
        if (path.empty()) return 1;
        NorvoStatus created = NorvoModelSet_New(m == 0 ? "eval" : "exact", path.c_str(), "");
        unlink(path.c_str());
        if (created != NORVO_SUCCESS) return 1;
    }
    char scratchFolder[] = "/tmp/engine-eval-XXXXXX";
    if (mkdtemp(scratchFolder) == nullptr) return 1;

    // Conditions are decoded a few at a time, each stream made when its turn comes.
    const size_t decodes = conditions.size() + (check ? 1 : 0);
    std::vector<Evidence> evidence(decodes);  // the check last
    std::atomic<size_t> next{0};
    std::atomic<bool> failed{false};
    auto worker = [&]() {
        for (size_t d = next++; d < decodes && !failed; d = next++) {
            const Condition& condition = conditions[d < conditions.size() ? d : 0];
            const bool exact = d == conditions.size();
            char what[160];
            snprintf(what, sizeof(what), "%s %zu/%zu (%s%s)", exact ? "check" : "condition",
                     exact ? 1 : d + 1, exact ? 1 : conditions.size(), condition.label.c_str(),
                     exact ? ", at the thresholds themselves" : "");
            fprintf(stderr, "engine_eval: decoding %s\n", what);
            auto started = std::chrono::steady_clock::now();
            std::string id = "eval-" + std::to_string(d);
            std::vector<int16_t> samples;
            norvo_ps::DecoderStats stats;
            if (!conditioned(stream, condition, babble, std::string(scratchFolder) + "/" + id,
                             &samples) ||
                !decode(id, exact ? "exact" : "eval", samples, stream.cuts, &stats)) {
                failed = true;
                return;
            }
            std::vector<Result> results;
            {
                std::lock_guard<std::mutex> guard(gLock);
                results.swap(gResults[id]);
            }
            evidence[d] = assess(stream.items, std::move(results));
            evidence[d].stats = stats;
            evidence[d].seconds =
                    std::chrono::duration<double>(std::chrono::steady_clock::now() - started)
                            .count();
            fprintf(stderr, "engine_eval: %s done in %.0f s\n", what, evidence[d].seconds);
        }
    };
    std::vector<std::thread> threads;
    for (int j = 0; j < std::min<int>(jobs, static_cast<int>(decodes)); ++j) {
        threads.emplace_back(worker);
    }
    for (std::thread& thread : threads) thread.join();
    rmdir(scratchFolder);
    NorvoModelSet_Delete("eval");
    if (check) NorvoModelSet_Delete("exact");
    if (failed) return 1;
    Evidence exact;
    if (check) {
        exact = std::move(evidence.back());
        evidence.pop_back();
    }

    // ---- the figures ----
    const char* floorNote = floorDecades > 0 ? " (filtered from one decode with every threshold "
                                               "lowered by the floor)"
                                             : "";
    printf("### %s%s\n\n", changed ? "With the thresholds given" : "At the manifest's thresholds",
           floorNote);
    conditionTable(stream, conditions, evidence, log10s, groups);
    printf("\nPer keyword, all conditions pooled:\n\n");
    keywordTable(stream, evidence, log10s, groups);
    printf("\nWake phrases by how they were said:\n\n");
    kindTable(stream, evidence, log10s, groups);
    if (stream.voices.size() > 1) {
        printf("\nPer voice:\n\n");
        voiceTable(stream, evidence, log10s);
    }
    printf("\n");
    timingLine(stream, conditions[0], evidence[0], log10s);
    double cpu = 0, audio = 0;
    for (const Evidence& e : evidence) {
        cpu += e.stats.decodeCpuNs / 1e9;
        audio += e.stats.decodedFrames / double(kRate);
    }
    printf("All conditions: %.1f h of audio decoded, real-time factor %.4f.\n", audio / 3600,
           cpu / std::max(audio, 1e-9));
    if (check) {
        Tally filtered = tally(stream.items, evidence[0], log10s, Selection());
        Tally decoded = tally(stream.items, exact, log10s, Selection());
        int differ = 0;
        for (size_t i = 0; i < stream.items.size(); ++i) {
            const Item& item = stream.items[i];
            int k = item.keyword;
            int at = static_cast<int>(i);
            if (item.positive() &&
                (evidence[0].score(at) >= log10s[k]) != (exact.score(at) >= log10s[k])) {
                ++differ;
            }
        }
        printf("Check, %s decoded again at these thresholds: wake phrases heard %s (filtered %s), "
               "commands %s (%s), false alarms in unrelated speech %d (%d), near misses and "
               "command-word sentences firing %d (%d); %d of %d positives heard differently.\n",
               conditions[0].label.c_str(), percent(decoded.heard[0], decoded.spoken[0]).c_str(),
               percent(filtered.heard[0], filtered.spoken[0]).c_str(),
               percent(decoded.heard[1], decoded.spoken[1]).c_str(),
               percent(filtered.heard[1], filtered.spoken[1]).c_str(),
               decoded.alarms[0] + decoded.alarms[1], filtered.alarms[0] + filtered.alarms[1],
               decoded.fired[0] + decoded.fired[1], filtered.fired[0] + filtered.fired[1], differ,
               decoded.spoken[0] + decoded.spoken[1]);
    }
    for (size_t c = 0; verbose && c < conditions.size(); ++c) {
        verboseLists(stream, conditions[c], evidence[c], log10s);
    }

    std::vector<double> chosen;
    if (tuneIndex >= 0) {
        printf("\n### Thresholds chosen on the %s set\n\n", tuneGroup.c_str());
        printf("Per keyword, on the %s set with all conditions pooled, the whole-decade thresholds "
               "with at most %g false alarms per hour of unrelated speech and at most %g%% of its "
               "near-miss sentences firing give the best recall from the lowest of them up to the "
               "next lost hit; the choice is the middle of that range.\n\n",
               tuneGroup.c_str(), maxPerHour, 100 * maxNearMiss);
        for (size_t k = 0; k < gKeywords.size(); ++k) {
            Choice choice = choose(stream, evidence, log10s, static_cast<int>(k), tuneIndex,
                                   decodeLog10s[k], maxPerHour, maxNearMiss);
            chosen.push_back(choice.log10);
            const char* name = gKeywords[k].name.c_str();
            switch (choice.outcome) {
                case Choice::Chosen:
                    break;
                case Choice::AtFloor:
                    printf("- %s: already the lowest threshold decoded meets the targets; a lower "
                           "--floor may hear more.\n",
                           name);
                    break;
                case Choice::NeverHeard:
                    printf("- %s: heard at no threshold tried (or nothing of it to hear); kept at "
                           "%s.\n",
                           name, thresholdText(choice.log10).c_str());
                    break;
                case Choice::NoneMeets:
                    printf("- %s: no threshold up to its highest score meets the targets; %s hears "
                           "nothing.\n",
                           name, thresholdText(choice.log10).c_str());
                    break;
            }
        }
        Selection tuning;
        tuning.group = tuneIndex;
        double hours = tallyAll(stream.items, evidence, log10s, tuning).speechSeconds / 3600;
        // With no false alarm in T hours, the rate may still be up to 3/T per hour (95% bound).
        if (hours < 3 / std::max(maxPerHour, 1e-9)) {
            printf("- The %s set has %.1f h of unrelated speech: even with no false alarm in it, "
                   "the rate may be up to %.1f per hour (95%% bound); more unrelated speech would "
                   "make these choices safer.\n",
                   tuneGroup.c_str(), hours, 3 / std::max(hours, 1e-9));
        }
        printf("\n");
        keywordTable(stream, evidence, chosen, groups);
        printf("\nThe manifest's keyword lines with these thresholds:\n\n");
        std::ifstream in(manifest);
        std::string line;
        while (std::getline(in, line)) {
            std::istringstream fields(line);
            std::string kind, keyword, old, rest;
            fields >> kind >> keyword >> old;
            if (kind != "wake" && kind != "command") continue;
            std::getline(fields, rest);
            rest.erase(0, rest.find_first_not_of(" \t"));
            printf("    %-7s %-16s %-6s %s\n", kind.c_str(), keyword.c_str(),
                   thresholdText(chosen[keywordIndex(keyword)]).c_str(), rest.c_str());
        }
        printf("\n### Every condition with the chosen thresholds%s\n\n", floorNote);
        conditionTable(stream, conditions, evidence, chosen, groups);
    }
    if (!detFolder.empty()) {
        writeDet(detFolder, stream, evidence, groups, decodeLog10s, log10s, chosen);
    }
    return 0;
}
