// The PocketSphinx engine through its C entry points, as the service uses them: statuses and log
// lines for bad input, id reuse, decoder kinds it refuses, real decoder threads, results to the
// sample on the caller's scale, and callbacks that can be removed while one is running.
#include <gtest/gtest.h>
#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>
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
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "SpeechClip.h"
#include "Wait.h"

using wws_test::SpeechStream;

namespace {

const char* const kModelSet = "WakeWordService_modelset";
const char* const kInput = "WakeWordService_input_decoder";
const char* const kPlayback = "WakeWordService_playback_decoder";

struct Heard {
    bool localCommand;
    std::string decoder, keyword, detail;
    int64_t begin, end;
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

NorvoMultichannelAudioFormat format(uint32_t channels, uint32_t rate = 16000) {
    NorvoMultichannelAudioFormat f = NorvoDecoder_NewNorvoMultichannelAudioFormat_Default();
    f.words[NORVO_AUDIO_FORMAT_WORD_SAMPLE_RATE] = rate;
    f.words[NORVO_AUDIO_FORMAT_WORD_CHANNEL_COUNT] = channels;
    return f;
}

NorvoStatus push(const char* decoder, const int16_t* samples, size_t count, uint64_t first) {
    char metadata[128];
    snprintf(metadata, sizeof(metadata), "{ \"sample_count\":%zu, \"first_sample_index\":%llu }",
             count, static_cast<unsigned long long>(first));
    NorvoAudioEvent event{"samples", metadata, samples, 0};
    return NorvoDecoder_PushAudioEvent(decoder, &event);
}

// Pushes interleaved audio as a capture thread would: 320 frames at a time.
void pushAll(const std::vector<int16_t>& samples, uint32_t channels, uint64_t firstFrame) {
    const size_t frames = samples.size() / channels;
    for (size_t at = 0; at < frames; at += 320) {
        size_t count = std::min<size_t>(320, frames - at);
        ASSERT_EQ(NORVO_SUCCESS,
                  push(kInput, samples.data() + at * channels, count * channels, firstFrame + at));
    }
}

// Half a second of silence, a wake phrase, a second of silence.
std::vector<int16_t> wakePhrase() {
    SpeechStream stream;
    stream.silence(0.5);
    stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.0);
    return stream.samples();
}

class PsEngineApi : public ::testing::Test {
  protected:
    void SetUp() override {
        gRecorder = &mRecorder;
        NorvoApi_SetLoggingCallback([](int level, const char* component, const char* message) {
            std::lock_guard<std::mutex> guard(gRecorder->lock);
            gRecorder->log.push_back(std::to_string(level) + " " + component + ": " + message);
        });
        NorvoApi_SetMetricsCallback([](const char*, const char* metrics) {
            std::lock_guard<std::mutex> guard(gRecorder->lock);
            gRecorder->metrics.push_back(metrics);
        });
        NorvoApi_SetEnumeratedResultCallback(
                [](NorvoDecoderId id, NorvoEnumeratedResult* r) { record(false, id, r); });
        NorvoApi_SetLocalCommandEnumeratedResultCallback(
                [](NorvoDecoderId id, NorvoEnumeratedResult* r) { record(true, id, r); });
    }
    void TearDown() override {
        {
            std::lock_guard<std::mutex> guard(mRecorder.lock);
            mRecorder.during = nullptr;
        }
        for (const char* id : {kInput, kPlayback}) NorvoDecoder_Delete(id);
        NorvoModelSet_Delete(kModelSet);
        NorvoApi_SetEnumeratedResultCallback(nullptr);
        NorvoApi_SetLocalCommandEnumeratedResultCallback(nullptr);
        NorvoApi_SetMetricsCallback(nullptr);
        NorvoApi_SetLoggingCallback(nullptr);
        gRecorder = nullptr;
    }

    void createDefault(uint32_t channels = 1) {
        ASSERT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
        ASSERT_EQ(NORVO_SUCCESS, NorvoDecoder_NewSpotterAudioDecoder(kInput, kModelSet, "norvo",
                                                                     format(channels), "{}"));
    }

    std::vector<Heard> waitHeard(size_t count) {
        std::unique_lock<std::mutex> lock(mRecorder.lock);
        mRecorder.changed.wait_for(lock, std::chrono::seconds(10),
                                   [&] { return mRecorder.heard.size() >= count; });
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

    Recorder mRecorder;
};

// A missing manifest is unreadable (6), not malformed, and says why in one line.
TEST_F(PsEngineApi, ABadManifestFailsWithItsStatusAndOneErrorLineNeverFatally) {
    EXPECT_EQ(NORVO_PS_MANIFEST_UNREADABLE,
              NorvoModelSet_New(kModelSet, "/nonexistent/norvo.manifest", ""));
    EXPECT_TRUE(
            logged("2 norvo-pocketsphinx: model set 'WakeWordService_modelset' not created "
                   "(status 6): cannot read manifest '/nonexistent/norvo.manifest': No such "
                   "file or directory"));
    // Not 1, which the service takes as fatal (it tries a default NTT model that may be absent).
    // A failed model set leaves its id free.
    EXPECT_EQ(NORVO_SUCCESS, NorvoModelSet_New(kModelSet, WWS_DEFAULT_MANIFEST, ""));
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
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoModelSet_Delete(kModelSet));
    createDefault();
}

TEST_F(PsEngineApi, DecodersAndOperationsItCannotServeAreRefusedWithTheirStatus) {
    createDefault();
    EXPECT_EQ(NORVO_PS_UNKNOWN_KEYWORD,
              NorvoDecoder_NewSpotterAudioDecoder(
                      kPlayback, kModelSet, "norvo", format(1),
                      "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\",\"HELLO_COMPUTER\"]}}"));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_Delete(kPlayback));  // a failed decoder is gone
    NorvoNttEvent ntt{0, 1, 2, "{}", 3};
    const std::pair<NorvoStatus, NorvoStatus> cases[] = {
            {NORVO_PS_UNSUPPORTED_AUDIO_FORMAT,
             NorvoDecoder_NewSpotterAudioDecoder(kPlayback, kModelSet, "norvo", format(1, 48000),
                                                 "{}")},
            {NORVO_PS_NOT_FOUND, NorvoDecoder_NewSpotterAudioDecoder(kPlayback, "no_such_set",
                                                                     "norvo", format(1), "{}")},
            {NORVO_PS_UNSUPPORTED, NorvoDecoder_NewMultichannelAudioDecoder(
                                           "WakeWordService_audiopresence_decoder", kModelSet,
                                           "norvo", 0, 0, 0, 0, 0, 0, format(3))},
            {NORVO_PS_UNSUPPORTED,
             NorvoDecoder_NewPcmInt16("wws_pma", kModelSet, "norvo", 0, 0, 0, 0)},
            {NORVO_PS_UNSUPPORTED, NorvoDecoder_SetNttConfiguration(kInput, 1)},
            {NORVO_PS_UNSUPPORTED, NorvoDecoder_PushNttEvent(kInput, &ntt)},
            {NORVO_PS_UNSUPPORTED, NorvoDecoder_SetFingerprintDatabase(kInput, "/db")},
            {NORVO_PS_NOT_FOUND, NorvoDecoder_SetNttConfiguration("wws_ntt", 1)},
            {NORVO_PS_UNSUPPORTED, NorvoModelSet_SetAedCustomSoundConfig(kModelSet, "norvo", "{}")},
            {NORVO_PS_NOT_FOUND,
             NorvoModelSet_SetAedCustomSoundConfig("AudioPresenceNorvo_modelset", "norvo", "{}")},
            {NORVO_PS_NOT_FOUND, NorvoDecoder_SessionEnd(kPlayback)},
            {NORVO_PS_NOT_FOUND, NorvoModelSet_GetModelSetAttributes("other", nullptr, nullptr)},
    };
    for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << i;
    EXPECT_TRUE(
            logged("3 norvo-pocketsphinx: decoder 'WakeWordService_audiopresence_decoder' not "
                   "created (status 11): audio-event (multichannel) decoders are not "
                   "implemented by this engine"));
}

TEST_F(PsEngineApi, AudioPushStatusesNameTheFault) {
    createDefault(3);
    int16_t samples[6] = {};
    struct Case {
        NorvoStatus status;
        const char* type;
        const char* metadata;
        const void* data;
    } cases[] = {
            {NORVO_SUCCESS, "samples", "{ \"sample_count\":6, \"first_sample_index\":0 }", samples},
            {NORVO_SUCCESS, "samples", "{\"first_sample_index\":2,\"sample_count\":0}", nullptr},
            {NORVO_PS_BAD_AUDIO_EVENT, "samples", "{ \"sample_count\":5, \"first_sample_index\":2 }",
             samples},
            {NORVO_PS_BAD_AUDIO_EVENT, "samples", "{ \"sample_count\":6 }", samples},
            {NORVO_PS_BAD_AUDIO_EVENT, "samples",
             "{ \"sample_count\":-6, \"first_sample_index\":2 }", samples},
            {NORVO_PS_BAD_AUDIO_EVENT, "frames", "{ \"sample_count\":6, \"first_sample_index\":2 }",
             samples},
            {NORVO_PS_BAD_AUDIO_EVENT, "samples",
             "{ \"sample_count\":6, \"first_sample_index\":2 }", nullptr},
    };
    for (const Case& c : cases) {
        NorvoAudioEvent event{c.type, c.metadata, c.data, 0};
        EXPECT_EQ(c.status, NorvoDecoder_PushAudioEvent(kInput, &event)) << c.metadata;
    }
    EXPECT_EQ(NORVO_PS_BAD_AUDIO_EVENT, NorvoDecoder_PushAudioEvent(kInput, nullptr));
    EXPECT_EQ(NORVO_PS_NOT_FOUND, push(kPlayback, samples, 6, 0));
}

TEST_F(PsEngineApi, ResultsComeOnTheDecoderThreadToTheSampleOnTheCallersScale) {
    // Three channels, detection on the first; indices far from 0, as after hours of capture.
    createDefault(3);
    SpeechStream stream;
    stream.silence(0.8);
    stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.0);
    stream.add(wws_test::speechClip("stop"));
    stream.silence(1.5);
    const int64_t base = 5000000;
    pushAll(stream.threeChannels(), 3, base);
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 20000));
    std::vector<Heard> results = heard();
    ASSERT_EQ(2u, results.size());
    // Read off this engine for this stream (the spotter's own test places the same frame
    // arithmetic against where its clips were put).
    const struct {
        bool localCommand;
        const char* keyword;
        const char* detail;
        int64_t begin, end;
    } expected[] = {{false, "PURPLE_ELEPHANT", "purple elephant", 12000, 27199},
                    {true, "STOP", "stop", 42400, 49759}};
    for (size_t i = 0; i < 2; ++i) {
        const Heard& r = results[i];
        EXPECT_EQ(expected[i].localCommand, r.localCommand);
        EXPECT_EQ(kInput, r.decoder);
        EXPECT_EQ(expected[i].keyword, r.keyword);
        EXPECT_EQ(expected[i].detail, r.detail);
        EXPECT_EQ(base + expected[i].begin, r.begin) << r.keyword;
        EXPECT_EQ(base + expected[i].end, r.end) << r.keyword;
        EXPECT_EQ(0, r.detectionType);
        EXPECT_EQ(0u, r.blob.find(std::string("{\"keyword\":\"") + r.keyword + "\",\"phrase\":\"" +
                                  r.detail + "\",\"score\":"));
        EXPECT_NE(std::string::npos, r.blob.find("\"samples\":[" + std::to_string(r.begin) + "," +
                                                 std::to_string(r.end) + "]"));
        EXPECT_GT(r.tail, r.end);
        EXPECT_EQ(NorvoDecoder_GetDecoderThreadId(kInput).threadId, r.threadId);
    }
    norvo_ps::DecoderStats stats;
    ASSERT_TRUE(norvo_ps::decoderStats(kInput, &stats));
    EXPECT_EQ(stream.samples().size(), stats.decodedFrames);
    // The decoder thread is a real, named thread that the service can renice.
    const int thread = NorvoDecoder_GetDecoderThreadId(kInput).threadId;
    std::ifstream comm("/proc/self/task/" + std::to_string(thread) + "/comm");
    std::string name;
    std::getline(comm, name);
    EXPECT_EQ("NorvoSpotter", name);
    ASSERT_EQ(0, setpriority(PRIO_PROCESS, static_cast<id_t>(thread), 7));
    EXPECT_EQ(7, getpriority(PRIO_PROCESS, static_cast<id_t>(thread)));
}

// The phrase ends the audio: only the session's end lets the decoder report it, to the sample as
// the spotter frames it from the stream's start (its first index, here 100).
TEST_F(PsEngineApi, SessionEndReportsAPhraseStillBeingDecoded) {
    createDefault();
    SpeechStream stream;
    stream.silence(0.5);
    stream.add(wws_test::speechClip("purple_elephant"));
    pushAll(stream.samples(), 1, 100);
    EXPECT_EQ(NORVO_SUCCESS, NorvoDecoder_SessionEnd(kInput));
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 20000));
    std::vector<Heard> results = heard();
    ASSERT_EQ(1u, results.size());
    EXPECT_EQ("PURPLE_ELEPHANT", results[0].keyword);
    EXPECT_EQ(100 + 7200, results[0].begin);
    EXPECT_EQ(100 + 22239, results[0].end);
}

TEST_F(PsEngineApi, AFullQueueDropsTheRestCountsItAndTheDecoderLogsIt) {
    createDefault();
    // Far more than the queue holds, in one push: it returns at once with what did not fit.
    std::vector<int16_t> samples(20 * 16000, 0);
    EXPECT_EQ(NORVO_PS_QUEUE_FULL, push(kInput, samples.data(), samples.size(), 0));
    // What fit and what was dropped, counted (the queue's own test checks the counts): the
    // warning gives both.
    norvo_ps::DecoderStats stats;
    ASSERT_TRUE(norvo_ps::decoderStats(kInput, &stats));
    EXPECT_EQ(samples.size(), stats.queuedFrames + stats.droppedFrames);
    ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 30000));
    const std::string dropped = std::to_string(stats.droppedFrames);
    const std::string warning =
            "3 norvo-pocketsphinx: decoder 'WakeWordService_input_decoder': "
            "audio queue full, dropped " +
            dropped + " frames (" + dropped + " frames in 1 pushes so far)";
    EXPECT_TRUE(wws_test::waitFor([&] { return logged(warning); }));
    EXPECT_EQ(NORVO_SUCCESS, push(kInput, samples.data(), 320, samples.size()));  // room again
}

// Removing the result callback, and deleting the decoder, return only once no callback can run: a
// callback is held inside; the call must still be running when it is let go.
TEST_F(PsEngineApi, RemovalAndDeletionWaitForTheCallbackThatIsRunning) {
    const std::vector<int16_t> speech = wakePhrase();
    const std::pair<const char*, NorvoStatus (*)()> operations[] = {
            {"removal", [] { return NorvoApi_SetEnumeratedResultCallback(nullptr); }},
            {"deletion", [] { return NorvoDecoder_Delete(kInput); }}};
    for (auto [name, operation] : operations) {
        SCOPED_TRACE(name);
        TearDown();
        mRecorder.heard.clear();
        mRecorder.metrics.clear();
        SetUp();
        createDefault();
        std::promise<void> entered, release;
        std::shared_future<void> released = release.get_future().share();
        std::atomic<bool> first{true}, finished{false};
        mRecorder.during = [&](NorvoDecoderId) {
            if (!first.exchange(false)) return;
            entered.set_value();
            released.wait();
            finished = true;
        };
        pushAll(speech, 1, 0);
        entered.get_future().wait();
        auto call = std::async(std::launch::async, operation);
        // A call that does not wait returns at once: give it the time to.
        EXPECT_EQ(std::future_status::timeout, call.wait_for(std::chrono::milliseconds(300)));
        release.set_value();
        EXPECT_EQ(NORVO_SUCCESS, call.get());
        EXPECT_TRUE(finished.load());
        ASSERT_EQ(1u, waitHeard(1).size());
        if (NorvoDecoder_GetDecoderThreadId(kInput).status == NORVO_SUCCESS) {
            // Nothing reaches the removed callback afterwards.
            pushAll(speech, 1, speech.size());
            ASSERT_TRUE(norvo_ps::waitUntilDecoded(kInput, 20000));
            EXPECT_EQ(1u, heard().size());
        } else {
            // A deleted decoder's metrics went out before it ended.
            std::lock_guard<std::mutex> guard(mRecorder.lock);
            ASSERT_EQ(1u, mRecorder.metrics.size());
            EXPECT_EQ(0u, mRecorder.metrics[0].find("decoder=WakeWordService_input_decoder audio_s="));
        }
    }
}

TEST_F(PsEngineApi, ADecoderCanBeDeletedFromItsOwnCallback) {
    createDefault();
    std::atomic<NorvoStatus> deleted{-1};
    mRecorder.during = [&](NorvoDecoderId id) { deleted = NorvoDecoder_Delete(id); };
    pushAll(wakePhrase(), 1, 0);
    ASSERT_EQ(1u, waitHeard(1).size());
    EXPECT_EQ(NORVO_SUCCESS, deleted.load());
    EXPECT_EQ(NORVO_PS_NOT_FOUND, NorvoDecoder_GetDecoderThreadId(kInput).status);
    EXPECT_EQ(NORVO_SUCCESS,  // the id is free again
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

}  // namespace
