#include "Recognizer.h"

#include <pocketsphinx.h>
#include <sphinxbase/ckd_alloc.h>
#include <sphinxbase/cmn.h>
#include <sphinxbase/err.h>
#include <sphinxbase/fe.h>
#include <sphinxbase/feat.h>
#include <sphinxbase/logmath.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <type_traits>

namespace norvo_ps {

namespace {

// How this PocketSphinx version scores keyword phrases: thresholds read from the keyword list are
// log(threshold) shifted right by 10 bits (its senone score shift), and a segment's probability is
// the phrase's margin over the phone loop minus a fixed 1500, so that confidences stay below 1.
constexpr int kScoreShift = 10;
constexpr int kKeywordScoreOffset = 1500;
// The cepstral mean is kept as floats on this side.
static_assert(std::is_same<mfcc_t, float>::value, "PocketSphinx built with floating-point features");

std::mutex gOpenLock;  // PocketSphinx set-up touches process-wide state
std::atomic<Recognizer::LogSink> gLogSink{nullptr};
std::once_flag gLogRouting;

void sphinxLog(void*, err_lvl_t level, const char* format, ...) {
    // INFO and DEBUG lines describe every model load and utterance: too much for a device log.
    if (level != ERR_WARN && level != ERR_ERROR && level != ERR_FATAL) return;
    Recognizer::LogSink sink = gLogSink.load();
    if (sink == nullptr) return;
    char message[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    size_t length = strlen(message);
    while (length > 0 && (message[length - 1] == '\n' || message[length - 1] == ' ')) {
        message[--length] = '\0';
    }
    sink(level == ERR_WARN ? 3 : 2, message);
}

void installLogRouting() {
    std::call_once(gLogRouting, [] {
        // No log file: the configuration dump PocketSphinx writes there at every set-up would
        // otherwise land on stderr. Its messages go to sphinxLog instead.
        err_set_logfp(nullptr);
        err_set_callback(sphinxLog, nullptr);
    });
}

}  // namespace

void Recognizer::routeLogs(LogSink sink) {
    gLogSink.store(sink);
    installLogRouting();
}

std::unique_ptr<Recognizer> Recognizer::open(const std::string& acousticModel,
                                             const std::string& dictionary,
                                             int detectionDelayFrames, double frequencyWarp,
                                             std::string* error) {
    installLogRouting();
    std::unique_ptr<Recognizer> recognizer(new Recognizer());
    std::string delay = std::to_string(detectionDelayFrames);
    std::lock_guard<std::mutex> guard(gOpenLock);
    // -remove_silence no: with silence removal the recognizer skips frames it deems silent, and
    // its frame numbers would no longer say where in the audio a phrase was.
    recognizer->mConfig =
            dictionary.empty()
                    ? cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", acousticModel.c_str(),
                                  "-remove_silence", "no", "-kws_delay", delay.c_str(), nullptr)
                    : cmd_ln_init(nullptr, ps_args(), TRUE, "-hmm", acousticModel.c_str(), "-dict",
                                  dictionary.c_str(), "-remove_silence", "no", "-kws_delay",
                                  delay.c_str(), nullptr);
    if (recognizer->mConfig != nullptr && frequencyWarp != 1.0) {
        // The front end places its mel bands at (frequency / parameter): the parameter is the
        // inverse of the factor the voice is moved by.
        char parameter[32];
        snprintf(parameter, sizeof(parameter), "%.6g", 1.0 / frequencyWarp);
        cmd_ln_set_str_r(recognizer->mConfig, "-warp_type", "inverse_linear");
        cmd_ln_set_str_r(recognizer->mConfig, "-warp_params", parameter);
    }
    if (recognizer->mConfig == nullptr) {
        *error = "PocketSphinx rejected its configuration for '" + acousticModel + "'";
        return nullptr;
    }
    recognizer->mDecoder = ps_init(recognizer->mConfig);
    if (recognizer->mDecoder == nullptr) {
        *error = "PocketSphinx could not load the acoustic model '" + acousticModel + "'" +
                 (dictionary.empty() ? "" : " with dictionary '" + dictionary + "'");
        return nullptr;
    }
    long rate = static_cast<long>(cmd_ln_float32_r(recognizer->mConfig, "-samprate"));
    long frameRate = cmd_ln_int32_r(recognizer->mConfig, "-frate");
    if (rate != 16000 || frameRate <= 0 || rate % frameRate != 0) {
        *error = "acoustic model '" + acousticModel + "' expects " + std::to_string(rate) +
                 " Hz at " + std::to_string(frameRate) + " frames per second, not 16000 Hz";
        return nullptr;
    }
    recognizer->mSamplesPerFrame = static_cast<int>(rate / frameRate);
    // A model without cepstral mean normalisation has no mean to set: both calls do nothing.
    cmn_t* cmn = ps_get_feat(recognizer->mDecoder)->cmn_struct;
    if (cmn == nullptr) return recognizer;
    recognizer->mMeasuringFrontEnd = fe_init_auto_r(recognizer->mConfig);
    if (recognizer->mMeasuringFrontEnd == nullptr ||
        fe_get_output_size(recognizer->mMeasuringFrontEnd) != cmn->veclen) {
        *error = "PocketSphinx could not set up a front end for '" + acousticModel + "'";
        return nullptr;
    }
    recognizer->mStoredMean.assign(cmn->cmn_mean, cmn->cmn_mean + cmn->veclen);
    recognizer->mCepstrum.assign(static_cast<size_t>(cmn->veclen), 0);
    recognizer->mSum.assign(static_cast<size_t>(cmn->veclen), 0);
    return recognizer;
}

Recognizer::~Recognizer() {
    if (mDecoder != nullptr) {
        if (mInUtterance) ps_end_utt(mDecoder);
        ps_free(mDecoder);
    }
    if (mMeasuringFrontEnd != nullptr) fe_free(mMeasuringFrontEnd);
    if (mConfig != nullptr) cmd_ln_free_r(mConfig);
}

void Recognizer::resetCepstralMean() {
    if (mMeasuringFrontEnd == nullptr) return;
    cmn_t* cmn = ps_get_feat(mDecoder)->cmn_struct;
    for (int i = 0; i < cmn->veclen; ++i) {
        cmn->cmn_mean[i] = mStoredMean[static_cast<size_t>(i)];
        cmn->sum[i] = 0;
    }
    cmn->nframe = 0;
}

bool Recognizer::measureCepstralMean(const int16_t* samples, size_t count, size_t unheeded) {
    // A front end of its own: feeding these samples through the decoder's would disturb its
    // overlap buffer and noise estimate. Frame by frame, so that no frame buffer is needed.
    if (mMeasuringFrontEnd == nullptr) return false;
    std::fill(mSum.begin(), mSum.end(), 0.0);
    int frames = 0;
    mfcc_t* row = mCepstrum.data();
    auto add = [&] {
        if (row[0] < 0) return;  // no energy: PocketSphinx's own mean skips these too
        for (size_t i = 0; i < mSum.size(); ++i) mSum[i] += row[i];
        ++frames;
    };
    // Each measurement starts afresh (noise estimate included): the same samples always give the
    // same mean.
    fe_start_stream(mMeasuringFrontEnd);
    fe_start_utt(mMeasuringFrontEnd);
    const int16* next = samples;
    size_t left = count;
    while (left > 0) {
        int32 produced = 1;
        if (fe_process_frames(mMeasuringFrontEnd, &next, &left, &row, &produced, nullptr) < 0) {
            break;
        }
        // A frame that ends within the unheeded samples does not count.
        if (produced == 1 && static_cast<size_t>(next - samples) > unheeded) add();
        if (produced == 0 && left > 0) break;  // cannot happen: a guard against a stuck loop
    }
    int32 last = 0;
    fe_end_utt(mMeasuringFrontEnd, row, &last);
    if (last == 1) add();
    if (frames == 0) return false;
    std::vector<float>& mean = mCepstrum;  // reused: the frame is no longer needed
    for (size_t i = 0; i < mSum.size(); ++i) mean[i] = static_cast<float>(mSum[i] / frames);
    cmn_live_set(ps_get_feat(mDecoder)->cmn_struct, mean.data());
    return true;
}

bool Recognizer::addWord(const std::string& word, const std::string& phones) {
    return ps_add_word(mDecoder, word.c_str(), phones.c_str(), TRUE) >= 0;
}

std::string Recognizer::lookup(const std::string& word) {
    char* phones = ps_lookup_word(mDecoder, word.c_str());
    if (phones == nullptr) return "";
    std::string copy = phones;
    ckd_free(phones);
    return copy;
}

bool Recognizer::setKeywords(const std::vector<std::pair<std::string, std::string>>& phrases,
                             std::string* error) {
    // The search reads its phrases from a file, one "phrase /threshold/" per line.
    const char* folder = getenv("TMPDIR");
    std::string pattern =
            std::string(folder != nullptr && *folder ? folder : "/tmp") + "/norvo-keywords-XXXXXX";
    std::vector<char> path(pattern.begin(), pattern.end());
    path.push_back('\0');
    int fd = mkstemp(path.data());
    if (fd < 0) {
        *error = "cannot write the keyword list to " + pattern + ": " + strerror(errno);
        return false;
    }
    std::string list;
    for (const auto& phrase : phrases) list += phrase.first + " /" + phrase.second + "/\n";
    bool written = write(fd, list.data(), list.size()) == static_cast<ssize_t>(list.size());
    close(fd);
    int status = -1;
    if (written) {
        status = ps_set_kws(mDecoder, "spotter", path.data());
        if (status == 0) status = ps_set_search(mDecoder, "spotter");
    }
    unlink(path.data());
    if (status != 0) {
        *error = written ? "PocketSphinx could not build the keyword search"
                         : "cannot write the keyword list to " + std::string(path.data());
        return false;
    }
    return true;
}

bool Recognizer::startStream() {
    if (mInUtterance) endUtterance();
    // A new utterance alone keeps counting frames from the stream's start; a new stream restarts
    // them at 0, which is what lets the caller map frames back to samples after every restart.
    if (ps_start_stream(mDecoder) < 0 || ps_start_utt(mDecoder) < 0) return false;
    mInUtterance = true;
    return true;
}

bool Recognizer::process(const int16_t* samples, size_t count) {
    if (!mInUtterance) return false;
    return ps_process_raw(mDecoder, samples, count, FALSE, FALSE) >= 0;
}

void Recognizer::endUtterance() {
    if (!mInUtterance) return;
    ps_end_utt(mDecoder);
    mInUtterance = false;
}

void Recognizer::segments(std::vector<Segment>* out) {
    out->clear();
    logmath_t* math = ps_get_logmath(mDecoder);
    for (ps_seg_t* seg = ps_seg_iter(mDecoder); seg != nullptr; seg = ps_seg_next(seg)) {
        Segment segment;
        const char* word = ps_seg_word(seg);
        segment.phrase = word != nullptr ? word : "";
        // The search keeps the phrase as its list line had it, trailing blank included.
        while (!segment.phrase.empty() && segment.phrase.back() == ' ') segment.phrase.pop_back();
        ps_seg_frames(seg, &segment.startFrame, &segment.endFrame);
        int32 acoustic = 0, language = 0, backoff = 0;
        int32 prob = ps_seg_prob(seg, &acoustic, &language, &backoff);
        segment.scoreLog10 =
                logmath_log_to_log10(math, (prob + kKeywordScoreOffset) * (1 << kScoreShift));
        out->push_back(std::move(segment));
    }
    std::sort(out->begin(), out->end(), [](const Segment& a, const Segment& b) {
        return a.startFrame != b.startFrame ? a.startFrame < b.startFrame : a.endFrame < b.endFrame;
    });
}

}  // namespace norvo_ps
