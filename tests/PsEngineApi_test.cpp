// The PocketSphinx engine through its C entry points, as the service uses them: statuses and log
// lines for bad input, id reuse, decoder kinds it refuses, real decoder threads, results with
// indices on the caller's scale, and callbacks that can be removed while one is running.
#include <gtest/gtest.h>
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SpeechClip.h"
#include "Wait.h"

using wws_test::Placed;
using wws_test::SpeechStream;

namespace {

const char* const kModelSet = "WakeWordService_modelset";
const char* const kInput = "WakeWordService_input_decoder";
const char* const kAllKeywords =
        "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\",\"CANCEL\",\"SNOOZE\","
        "\"PURPLE_ELEPHANT\",\"ORANGE_BICYCLE\"]}}";

struct Heard {
    bool localCommand;
    std::string decoder;
    std::string keyword;
    std::string detail;
    int64_t begin;
    int64_t end;
    int32_t detectionType;
    std::string blob;
    int64_t tail;
    int threadId;
};

// Everything the engine's callbacks deliver, for one test at a time.
struct Recorder {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<Heard> heard;
    std::vector<std::string> log;
    std::vector<std::string> metrics;
    // When set, a result callback calls it (on the decoder thread) before recording.
    std::function<void(NorvoDecoderId)> during;
};
Recorder* gRecorder = nullptr;

void record(bool localCommand, NorvoDecoderId id, NorvoEnumeratedResult* r) {
    std::function<void(NorvoDecoderId)> during;
    {
        std::lock_guard<std::mutex> guard(gRecorder->lock);
        during = gRecorder->during;
    }
    if (during) during(id);
    std::lock_guard<std::mutex> guard(gRecorder->lock);
    gRecorder->heard.push_back(
            Heard{localCommand, id, r->keyword, r->detailText, r->beginSampleIndex,
                  r->endSampleIndex, r->detectionType,
                  std::string(reinterpret_cast<const char*>(r->blob.data), r->blob.size),
                  r->tailValue, static_cast<int>(syscall(SYS_gettid))});
    gRecorder->changed.notify_all();
}
void onResult(NorvoDecoderId id, NorvoEnumeratedResult* r) {
    record(false, id, r);
}
void onLocalCommand(NorvoDecoderId id, NorvoEnumeratedResult* r) {
    record(true, id, r);
}
void onLog(int level, const char* component, const char* message) {
    std::lock_guard<std::mutex> guard(gRecorder->lock);
    gRecorder->log.push_back(std::to_string(level) + " " + component + ": " + message);
}
void onMetrics(const char*, const char* metrics) {
    std::lock_guard<std::mutex> guard(gRecorder->lock);
    gRecorder->metrics.push_back(metrics);
}

NorvoMultichannelAudioFormat format(uint32_t channels, uint32_t rate = 16000) {
    NorvoMultichannelAudioFormat f = NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
    f.words[NORVO_AUDIO_FORMAT_WORD_SAMPLE_RATE] = rate;
    f.words[NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT] = channels;
    return f;
}

NorvoStatus push(const char* decoder, const int16_t* samples, size_t count, uint64_t first) {
    char metadata[1024];
    snprintf(metadata, sizeof(metadata), "{ \"sample_count\":%zu, \"first_sample_index\":%llu }",
             count, static_cast<unsigned long long>(first));
    NorvoAudioEvent event{"samples", metadata, samples, 0};
    return NorvoDecoder_PushAudioEvent(decoder, &event);
}

// Pushes interleaved audio as a capture thread would: 320 frames at a time.
void pushAll(const char* decoder, const std::vector<int16_t>& samples, uint32_t channels,
             uint64_t firstFrame) {
    const size_t frames = samples.size() / channels;
    for (size_t at = 0; at < frames; at += 320) {
        size_t count = std::min<size_t>(320, frames - at);
        ASSERT_EQ(NORVO_SUCCESS,
                  push(decoder, samples.data() + at * channels, count * channels, firstFrame + at));
    }
}

class PsEngineApi : public ::testing::Test {
  protected:
    void SetUp() override {
        gRecorder = &mRecorder;
        NorvoApi_SetLoggingCallback(onLog);
        NorvoApi_SetMetricsCallback(onMetrics);
        NorvoApi_SetEnumeratedResultCallback(onResult);
        NorvoApi_SetLocalCommandEnumeratedResultCallback(onLocalCommand);
    }
    void TearDown() override {
        {
            std::lock_guard<std::mutex> guard(mRecorder.lock);
            mRecorder.during = nullptr;
        }
        for (const char* id : {kInput, "WakeWordService_playback_decoder"}) NorvoDecoder_Delete(id);
        NorvoModelSet_Delete(kModelSet);
        NorvoApi_SetEnumeratedResultCallback(nullptr);
        NorvoApi_SetLocalCommandEnumeratedResultCallback(nullptr);
        NorvoApi_SetMetricsCallback(nullptr);
        NorvoApi_SetLoggingCallback(nullptr);
        gRecorder = nullptr;
        for (const std::string& file : mFiles) unlink(file.c_str());
    }

    void createDefault(uint32_t channels = 1, const char* config = kAllKeywords) {
        ASSERT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
        ASSERT_EQ(NORVO_SUCCESS, NorvoDecoder_NewSpotterAudioDecoder(kInput, kModelSet, "norvo",
                                                                     format(channels), config));
    }

    std::string writeManifest(const std::string& keywords) {
        char name[] = "/tmp/ps-engine-XXXXXX";
        int fd = mkstemp(name);
        close(fd);
        std::ofstream(name) << "acoustic-model /usr/share/pocketsphinx/model/en-us/en-us\n"
                               "dictionary /usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict\n"
                            << keywords;
        mFiles.push_back(name);
        return name;
    }

    std::vector<Heard> waitHeard(size_t count,
                                 std::chrono::seconds deadline = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(mRecorder.lock);
        mRecorder.changed.wait_for(lock, deadline, [&] { return mRecorder.heard.size() >= count; });
        return mRecorder.heard;
    }
    std::vector<Heard> heard() {
        std::lock_guard<std::mutex> guard(mRecorder.lock);
        return mRecorder.heard;
    }
    bool logged(const std::string& line) {
        std::lock_guard<std::mutex> guard(mRecorder.lock);
        return std::find(mRecorder.log.begin(), mRecorder.log.end(), line) != mRecorder.log.end();
    }
    std::vector<std::string> logLines() {
        std::lock_guard<std::mutex> guard(mRecorder.lock);
        return mRecorder.log;
    }

    Recorder mRecorder;
    std::vector<std::string> mFiles;
};

TEST_F(PsEngineApi, ModelSetAttributesArriveBeforeTheGetterReturns) {
    ASSERT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
    std::string attributes;
    ASSERT_EQ(NORVO_SUCCESS,
              NorvoModelSet_GetModelSetAttributes(
                      kModelSet,
                      [](const char* json, void* user) { *static_cast<std::string*>(user) = json; },
                      &attributes));
    EXPECT_EQ(0u, attributes.find("{\"model_attributes\":[{\"model_id\":\"norvo\","));
    EXPECT_NE(std::string::npos,
              attributes.find("\"supported-keyword-list\":[\"STOP\",\"CANCEL\",\"SNOOZE\","
                              "\"PURPLE_ELEPHANT\",\"ORANGE_BICYCLE\"]"));
    EXPECT_EQ(std::string::npos, attributes.find("\"ntt\""));  // not a unified model
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoModelSet_GetModelSetAttributes(
                                          "other", [](const char*, void*) {}, nullptr));
    // The library's own description names this engine and stays put.
    const char* library = NorvoApi_GetAttributes();
    EXPECT_EQ(library, NorvoApi_GetAttributes());
    EXPECT_EQ(0u, std::string(library).find("{\"engine\":\"norvo-pocketsphinx\""));
}

TEST_F(PsEngineApi, ABadManifestFailsWithItsStatusAndOneErrorLine) {
    EXPECT_EQ(NORVO_PS_MANIFEST_UNREADABLE,
              NorvoModelSet_New(kModelSet, "/nonexistent/norvo.manifest", ""));
    EXPECT_TRUE(
            logged("2 norvo-pocketsphinx: model set 'WakeWordService_modelset' not created "
                   "(status 6): cannot read manifest '/nonexistent/norvo.manifest': No such "
                   "file or directory"));
    std::string unknownWord = writeManifest("wake HEY_VELMAR 1e-20 hey velmar\n");
    EXPECT_EQ(NORVO_PS_UNKNOWN_WORD, NorvoModelSet_New(kModelSet, unknownWord.c_str(), ""));
    EXPECT_TRUE(
            logged("2 norvo-pocketsphinx: model set 'WakeWordService_modelset' not created "
                   "(status 8): " +
                   unknownWord +
                   ":3: word 'velmar' of phrase 'hey velmar' is "
                   "not in the dictionary '/usr/share/pocketsphinx/model/en-us/"
                   "cmudict-en-us.dict' (add a 'pronounce' line)"));
    std::string malformed = writeManifest("wake HEY 1e-20\n");
    EXPECT_EQ(NORVO_PS_MANIFEST_MALFORMED, NorvoModelSet_New(kModelSet, malformed.c_str(), ""));
    // A failed model set leaves its id free.
    EXPECT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
}

TEST_F(PsEngineApi, TheDefaultNttModelThatIsNotThereIsNotFatal) {
    // The service tries this path when it switches to a model without NTT; 1 would be fatal.
    EXPECT_EQ(NORVO_PS_MANIFEST_UNREADABLE,
              NorvoModelSet_New("WakeWordService_ntt_modelset",
                                "/system/local/models/NTT/norvo.manifest", ""));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoModelSet_Delete("WakeWordService_ntt_modelset"));
}

TEST_F(PsEngineApi, IdsAreReusedAfterDeletionDecodersFirst) {
    createDefault();
    EXPECT_EQ(NORVO_PS_ALREADY_EXISTS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
    EXPECT_EQ(NORVO_PS_ALREADY_EXISTS,
              NorvoDecoder_NewSpotterAudioDecoder(kInput, kModelSet, "norvo", format(1), "{}"));
    EXPECT_EQ(NORVO_PS_IN_USE, NorvoModelSet_Delete(kModelSet));
    EXPECT_TRUE(
            logged("2 norvo-pocketsphinx: model set 'WakeWordService_modelset' not deleted "
                   "(status 5): decoders still use it"));
    // A model switch: decoders, then the model set, then both again under the same ids.
    EXPECT_EQ(NORVO_SUCCESS, NorvoDecoder_Delete(kInput));
    EXPECT_EQ(NORVO_SUCCESS, NorvoModelSet_Delete(kModelSet));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_Delete(kInput));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoModelSet_Delete(kModelSet));
    createDefault();
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_NewSpotterAudioDecoder("other", "no_such_set",
                                                                      "norvo", format(1), "{}"));
}

TEST_F(PsEngineApi, AnEnabledKeywordTheModelLacksFailsDecoderCreation) {
    ASSERT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
    EXPECT_EQ(NORVO_PS_UNKNOWN_KEYWORD,
              NorvoDecoder_NewSpotterAudioDecoder(
                      kInput, kModelSet, "norvo", format(1),
                      "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\",\"HELLO_COMPUTER\"]}}"));
    EXPECT_TRUE(
            logged("2 norvo-pocketsphinx: decoder 'WakeWordService_input_decoder' not created "
                   "(status 10): enabled keyword 'HELLO_COMPUTER' is not a keyword of model "
                   "set 'WakeWordService_modelset' for keyword set 'norvo' (it has "
                   "PURPLE_ELEPHANT, ORANGE_BICYCLE, STOP, CANCEL, SNOOZE)"));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_Delete(kInput));
    EXPECT_EQ(NORVO_PS_UNSUPPORTED_AUDIO_FORMAT,
              NorvoDecoder_NewSpotterAudioDecoder(kInput, kModelSet, "norvo", format(1, 48000),
                                                  "{}"));
}

TEST_F(PsEngineApi, DecoderKindsAndOperationsItLacksAreRefusedWithoutFailingFatally) {
    createDefault();
    EXPECT_EQ(NORVO_PS_UNSUPPORTED, NorvoDecoder_NewMultichannelAudioDecoder(
                                            "WakeWordService_audiopresence_decoder", kModelSet,
                                            "norvo", 0, 0, 0, 0, 0, 0, format(3)));
    EXPECT_TRUE(
            logged("3 norvo-pocketsphinx: decoder 'WakeWordService_audiopresence_decoder' not "
                   "created (status 11): audio-event (multichannel) decoders are not "
                   "implemented by this engine"));
    EXPECT_EQ(NORVO_PS_UNSUPPORTED,
              NorvoDecoder_NewPcmInt16("wws_pma", kModelSet, "norvo", 0, 0, 0, 0));
    EXPECT_EQ(NORVO_PS_UNSUPPORTED, NorvoDecoder_SetNttConfiguration(kInput, 1));
    NorvoNttEvent ntt{0, 1, 2, "{}", 3};
    EXPECT_EQ(NORVO_PS_UNSUPPORTED, NorvoDecoder_PushNttEvent(kInput, &ntt));
    EXPECT_EQ(NORVO_PS_UNSUPPORTED, NorvoDecoder_SetFingerprintDatabase(kInput, "/db"));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_SetNttConfiguration("wws_ntt", 1));
    EXPECT_EQ(NORVO_PS_UNSUPPORTED,
              NorvoModelSet_SetAedCustomSoundConfig(kModelSet, "norvo", "{}"));
    EXPECT_EQ(NORVO_PS_NOT_FOUND,
              NorvoModelSet_SetAedCustomSoundConfig("AudioPresenceNorvo_modelset", "norvo", "{}"));
}

TEST_F(PsEngineApi, TheDecoderThreadIsARealThreadThatCanBeReniced) {
    createDefault();
    NorvoDecoderThreadIdResult thread = NorvoDecoder_GetDecoderThreadId(kInput);
    ASSERT_EQ(NORVO_SUCCESS, thread.status);
    std::ifstream comm("/proc/self/task/" + std::to_string(thread.threadId) + "/comm");
    std::string name;
    std::getline(comm, name);
    EXPECT_EQ("NorvoSpotter", name);
    ASSERT_EQ(0, setpriority(PRIO_PROCESS, static_cast<id_t>(thread.threadId), 7));
    errno = 0;
    EXPECT_EQ(7, getpriority(PRIO_PROCESS, static_cast<id_t>(thread.threadId)));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_GetDecoderThreadId("other").status);
}

TEST_F(PsEngineApi, AudioPushStatusesNameTheFault) {
    createDefault(3);
    int16_t samples[6] = {};
    auto pushRaw = [&](const char* type, const char* metadata, const void* data) {
        NorvoAudioEvent event{type, metadata, data, 0};
        return NorvoDecoder_PushAudioEvent(kInput, &event);
    };
    EXPECT_EQ(NORVO_SUCCESS,
              pushRaw("samples", "{ \"sample_count\":6, \"first_sample_index\":0 }", samples));
    EXPECT_EQ(NORVO_SUCCESS,
              pushRaw("samples", "{\"first_sample_index\":2,\"sample_count\":0}", nullptr));
    EXPECT_EQ(NORVO_PS_BAD_AUDIO_EVENT,
              pushRaw("samples", "{ \"sample_count\":5, \"first_sample_index\":2 }", samples));
    EXPECT_EQ(NORVO_PS_BAD_AUDIO_EVENT, pushRaw("samples", "{ \"sample_count\":6 }", samples));
    EXPECT_EQ(NORVO_PS_BAD_AUDIO_EVENT,
              pushRaw("samples", "{ \"sample_count\":-6, \"first_sample_index\":2 }", samples));
    EXPECT_EQ(NORVO_PS_BAD_AUDIO_EVENT,
              pushRaw("frames", "{ \"sample_count\":6, \"first_sample_index\":2 }", samples));
    EXPECT_EQ(NORVO_PS_BAD_AUDIO_EVENT,
              pushRaw("samples", "{ \"sample_count\":6, \"first_sample_index\":2 }", nullptr));
    EXPECT_EQ(NORVO_PS_BAD_AUDIO_EVENT, NorvoDecoder_PushAudioEvent(kInput, nullptr));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, push("WakeWordService_playback_decoder", samples, 6, 0));
}

TEST_F(PsEngineApi, AWakePhraseReachesTheResultCallbackOnTheDecoderThreadOnTheCallersScale) {
    createDefault(3);
    SpeechStream stream;
    stream.silence(0.8);
    Placed placed = stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.5);
    const uint64_t base = 5000000;  // frames counted before this audio
    pushAll(kInput, stream.threeChannels(), 3, base);
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 20000));
    std::vector<Heard> results = heard();
    ASSERT_EQ(1u, results.size());
    const Heard& r = results[0];
    EXPECT_FALSE(r.localCommand);
    EXPECT_EQ(kInput, r.decoder);
    EXPECT_EQ("PURPLE_ELEPHANT", r.keyword);
    EXPECT_EQ("purple elephant", r.detail);
    EXPECT_NEAR(static_cast<double>(base + placed.begin), static_cast<double>(r.begin), 1600);
    EXPECT_NEAR(static_cast<double>(base + placed.end), static_cast<double>(r.end), 1600);
    EXPECT_EQ(0, r.detectionType);
    EXPECT_EQ(0u, r.blob.find("{\"keyword\":\"PURPLE_ELEPHANT\",\"phrase\":\"purple elephant\","
                              "\"score\":"));
    EXPECT_NE(std::string::npos, r.blob.find("\"samples\":[" + std::to_string(r.begin) + "," +
                                             std::to_string(r.end) + "]"));
    EXPECT_GE(r.tail, r.end);
    EXPECT_EQ(NorvoDecoder_GetDecoderThreadId(kInput).threadId, r.threadId);
    norvo_ps::DecoderStats stats;
    ASSERT_TRUE(norvo_ps::decoderStats(kInput, &stats));
    EXPECT_EQ(stream.samples().size(), stats.decodedFrames);
    EXPECT_EQ(1u, stats.detections);
}

TEST_F(PsEngineApi, LocalCommandsGoThroughTheLocalCommandCallback) {
    createDefault();
    SpeechStream stream;
    stream.silence(0.8);
    Placed placed = stream.add(wws_test::speechClip("stop"));
    stream.silence(1.5);
    pushAll(kInput, stream.samples(), 1, 0);
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 20000));
    std::vector<Heard> results = heard();
    ASSERT_EQ(1u, results.size());
    EXPECT_TRUE(results[0].localCommand);
    EXPECT_EQ("STOP", results[0].keyword);
    EXPECT_NEAR(static_cast<double>(placed.end), static_cast<double>(results[0].end), 1600);
}

TEST_F(PsEngineApi, SessionEndReportsAPhraseStillBeingDecoded) {
    createDefault();
    SpeechStream stream;
    stream.silence(0.5);
    stream.add(wws_test::speechClip("orange_bicycle"));
    pushAll(kInput, stream.samples(), 1, 0);
    EXPECT_EQ(NORVO_SUCCESS, NorvoDecoder_SessionEnd(kInput));
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 20000));
    std::vector<Heard> results = heard();
    ASSERT_EQ(1u, results.size());
    EXPECT_EQ("ORANGE_BICYCLE", results[0].keyword);
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_SessionEnd("WakeWordService_playback_decoder"));
}

TEST_F(PsEngineApi, AFullQueueDropsTheRestCountsItAndTheDecoderLogsIt) {
    createDefault();
    // Far more than the queue holds, in one push: it returns at once with what did not fit.
    std::vector<int16_t> samples(20 * 16000, 0);
    EXPECT_EQ(NORVO_PS_QUEUE_FULL, push(kInput, samples.data(), samples.size(), 0));
    norvo_ps::DecoderStats stats;
    ASSERT_TRUE(norvo_ps::decoderStats(kInput, &stats));
    // About 16 s fit (the decoder may free a cell or two while the push runs).
    EXPECT_GE(stats.queuedFrames, 1024u * 256);
    EXPECT_GT(stats.droppedFrames, 0u);
    EXPECT_EQ(samples.size(), stats.queuedFrames + stats.droppedFrames);
    EXPECT_EQ(1u, stats.overflowPushes);
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 30000));
    EXPECT_EQ(stats.queuedFrames, [] {
        norvo_ps::DecoderStats after;
        norvo_ps::decoderStats(kInput, &after);
        return after.decodedFrames;
    }());
    const std::string dropped = std::to_string(stats.droppedFrames);
    const std::string warning =
            "3 norvo-pocketsphinx: decoder 'WakeWordService_input_decoder': "
            "audio queue full, dropped " +
            dropped + " frames (" + dropped + " frames in 1 pushes so far)";
    EXPECT_TRUE(wws_test::waitFor([&] { return logged(warning); }));
    // The queue has room again.
    EXPECT_EQ(NORVO_SUCCESS, push(kInput, samples.data(), 320, samples.size()));
}

TEST_F(PsEngineApi, RemovingTheResultCallbackWaitsForTheOneRunning) {
    createDefault();
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> first{true};
    mRecorder.during = [&](NorvoDecoderId) {
        if (first.exchange(false)) {
            entered.set_value();
            released.wait();
        }
    };
    SpeechStream stream;
    stream.silence(0.5);
    stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.0);
    pushAll(kInput, stream.samples(), 1, 0);
    entered.get_future().wait();
    auto removal = std::async(std::launch::async,
                              [] { return NorvoApi_SetEnumeratedResultCallback(nullptr); });
    EXPECT_EQ(std::future_status::timeout, removal.wait_for(std::chrono::milliseconds(300)));
    release.set_value();
    EXPECT_EQ(NORVO_SUCCESS, removal.get());
    ASSERT_EQ(1u, waitHeard(1).size());
    // Nothing reaches the removed callback afterwards.
    pushAll(kInput, stream.samples(), 1, stream.samples().size());
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 20000));
    EXPECT_EQ(1u, heard().size());
}

TEST_F(PsEngineApi, DeleteReturnsOnlyWhenNoCallbackForTheDecoderCanRun) {
    createDefault();
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<bool> first{true};
    std::atomic<bool> finished{false};
    mRecorder.during = [&](NorvoDecoderId) {
        if (first.exchange(false)) {
            entered.set_value();
            released.wait();
            finished = true;
        }
    };
    SpeechStream stream;
    stream.silence(0.5);
    stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.0);
    pushAll(kInput, stream.samples(), 1, 0);
    entered.get_future().wait();
    auto deletion = std::async(std::launch::async, [] { return NorvoDecoder_Delete(kInput); });
    EXPECT_EQ(std::future_status::timeout, deletion.wait_for(std::chrono::milliseconds(300)));
    release.set_value();
    EXPECT_EQ(NORVO_SUCCESS, deletion.get());
    EXPECT_TRUE(finished.load());
    EXPECT_EQ(1u, heard().size());
    // Its metrics went out before it ended.
    std::lock_guard<std::mutex> guard(mRecorder.lock);
    ASSERT_EQ(1u, mRecorder.metrics.size());
    EXPECT_EQ(0u, mRecorder.metrics[0].find("decoder=WakeWordService_input_decoder audio_s="));
}

TEST_F(PsEngineApi, ADecoderCanBeDeletedFromItsOwnCallback) {
    createDefault();
    std::atomic<NorvoStatus> deleted{-1};
    mRecorder.during = [&](NorvoDecoderId id) { deleted = NorvoDecoder_Delete(id); };
    SpeechStream stream;
    stream.silence(0.5);
    stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.0);
    pushAll(kInput, stream.samples(), 1, 0);
    ASSERT_EQ(1u, waitHeard(1).size());
    EXPECT_EQ(NORVO_SUCCESS, deleted.load());
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_GetDecoderThreadId(kInput).status);
    // The id is free again.
    EXPECT_EQ(NORVO_SUCCESS,
              NorvoDecoder_NewSpotterAudioDecoder(kInput, kModelSet, "norvo", format(1), "{}"));
}

TEST_F(PsEngineApi, DecodersComeAndGoWhileAudioThreadsPush) {
    // A model switch deletes and re-creates decoders while capture threads may still push: a push
    // reaches a live decoder or none, never one being freed (the sanitizer builds check that).
    ASSERT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
    std::atomic<bool> stop{false};
    std::atomic<int> unexpected{0};
    std::vector<std::thread> pushers;
    for (int t = 0; t < 2; ++t) {
        pushers.emplace_back([&, t] {
            std::vector<int16_t> samples(160, static_cast<int16_t>(t));
            for (uint64_t first = 0; !stop.load(); first += 160) {
                NorvoStatus status = push(kInput, samples.data(), samples.size(), first);
                if (status != NORVO_SUCCESS && status != NORVO_PS_NOT_FOUND &&
                    status != NORVO_PS_QUEUE_FULL) {
                    ++unexpected;
                }
            }
        });
    }
    for (int round = 0; round < 10; ++round) {
        ASSERT_EQ(NORVO_SUCCESS, NorvoDecoder_NewSpotterAudioDecoder(kInput, kModelSet, "norvo",
                                                                     format(1), "{}"));
        ASSERT_EQ(NORVO_SUCCESS, NorvoDecoder_Delete(kInput));
    }
    stop = true;
    for (std::thread& pusher : pushers) pusher.join();
    EXPECT_EQ(0, unexpected.load());
}

TEST_F(PsEngineApi, ClientEventsAreKeptForAnyDecoderId) {
    NorvoClientEvent events[] = {{"NearMissEnabled", 1}, {"AudioPlayerState", 0}};
    NorvoClientEventBatch batch{2, events};
    // The service sends this before (or without) a decoder of that id.
    EXPECT_EQ(NORVO_SUCCESS, NorvoDecoder_PushClientEvents(kInput, &batch, 1));
    NorvoClientEvent later{"NearMissEnabled", 0};
    NorvoClientEventBatch second{1, &later};
    EXPECT_EQ(NORVO_SUCCESS, NorvoDecoder_PushClientEvents(kInput, &second, 1));
    std::map<std::string, int64_t> kept = norvo_ps::clientEvents(kInput);
    EXPECT_EQ((std::map<std::string, int64_t>{{"AudioPlayerState", 0}, {"NearMissEnabled", 0}}),
              kept);
    NorvoClientEvent unnamed{nullptr, 1};
    NorvoClientEventBatch bad{1, &unnamed};
    EXPECT_EQ(NORVO_PS_INVALID_ARGUMENT, NorvoDecoder_PushClientEvents(kInput, &bad, 1));
    EXPECT_EQ(NORVO_SUCCESS, NorvoApi_SetClientLookaheadMetadata("{ \"device_type\":\"host\"}"));
    EXPECT_EQ("{ \"device_type\":\"host\"}", norvo_ps::lookaheadMetadata());
}

}  // namespace
