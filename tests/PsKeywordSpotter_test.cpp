// The keyword spotter on real speech (flite clips): each spoken phrase reported once, with a sample
// range on the caller's scale, whatever the chunking, across restarts and index jumps.
#include <gtest/gtest.h>
#include <norvo_ps/NorvoPs.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <string>

#include "KeywordSpotter.h"
#include "SpeechClip.h"

using norvo_ps::Detection;
using norvo_ps::KeywordSpotter;
using norvo_ps::ModelSet;
using wws_test::Placed;
using wws_test::SpeechStream;

namespace {

constexpr int64_t k100Ms = 1600;

class PsKeywordSpotter : public ::testing::Test {
  protected:
    void SetUp() override {
        std::string error;
        ASSERT_EQ(NORVO_SUCCESS, ModelSet::load("set", WWS_DEFAULT_MANIFEST, &mSet, &error))
                << error;
        std::vector<size_t> all;
        for (size_t i = 0; i < mSet->keywords().size(); ++i) all.push_back(i);
        mSpotter = KeywordSpotter::create(mSet, all, &error);
        ASSERT_NE(nullptr, mSpotter) << error;
    }

    // Feeds samples in chunks, the first with index base; returns the reports.
    std::vector<Detection> feed(const std::vector<int16_t>& samples, int64_t base,
                                size_t chunk = 320) {
        std::vector<Detection> found;
        for (size_t at = 0; at < samples.size(); at += chunk) {
            size_t count = std::min(chunk, samples.size() - at);
            mSpotter->feed(samples.data() + at, count, base + static_cast<int64_t>(at), &found);
        }
        return found;
    }

    std::string name(const Detection& detection) {
        return mSet->keywords()[detection.keyword].name;
    }

    void expectHeard(const Detection& detection, const std::string& keyword, Placed placed,
                     int64_t base) {
        EXPECT_EQ(keyword, name(detection));
        EXPECT_NEAR(static_cast<double>(placed.begin + base),
                    static_cast<double>(detection.beginSample), k100Ms);
        EXPECT_NEAR(static_cast<double>(placed.end + base),
                    static_cast<double>(detection.endSample), k100Ms);
        EXPECT_GE(detection.scoreLog10, std::log10(mSet->keywords()[detection.keyword].threshold));
        EXPECT_GE(detection.decidedAt, detection.endSample);
    }

    std::shared_ptr<const ModelSet> mSet;
    std::unique_ptr<KeywordSpotter> mSpotter;
};

TEST_F(PsKeywordSpotter, ReportsASpokenPhraseOnceWithItsRangeOnTheCallersScale) {
    // Frames where the recognizer hears no speech must count too, or the range would drift.
    SpeechStream stream;
    stream.roomNoise(1.5);
    Placed placed = stream.add(wws_test::speechClip("purple_elephant"));
    stream.roomNoise(2.0);
    const int64_t base = 7000000;
    std::vector<Detection> found = feed(stream.samples(), base);
    ASSERT_EQ(1u, found.size());
    expectHeard(found[0], "PURPLE_ELEPHANT", placed, base);
}

TEST_F(PsKeywordSpotter, ChunkSizesDoNotChangeWhatIsHeard) {
    SpeechStream stream;
    stream.silence(0.7);
    stream.add(wws_test::speechClip("orange_bicycle"));
    stream.silence(1.0);
    std::vector<Detection> whole = feed(stream.samples(), 0, 16000);
    SetUp();
    std::vector<Detection> pieces = feed(stream.samples(), 0, 37);
    ASSERT_EQ(1u, whole.size());
    ASSERT_EQ(1u, pieces.size());
    EXPECT_EQ(whole[0].beginSample, pieces[0].beginSample);
    EXPECT_EQ(whole[0].endSample, pieces[0].endSample);
}

TEST_F(PsKeywordSpotter, APhraseSpokenStraightAfterAReportedOneIsHeardToo) {
    // The recognizer is restarted after the first report, when it has already decoded the start
    // of the second phrase (the report comes more than 100 ms after the first phrase's end):
    // that start must be decoded again.
    SpeechStream stream;
    stream.silence(0.5);
    Placed first = stream.add(wws_test::speechClip("orange_bicycle"));
    stream.silence(0.1);
    Placed second = stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.5);
    std::vector<Detection> found = feed(stream.samples(), 0);
    ASSERT_EQ(2u, found.size());
    expectHeard(found[0], "ORANGE_BICYCLE", first, 0);
    expectHeard(found[1], "PURPLE_ELEPHANT", second, 0);
}

TEST_F(PsKeywordSpotter, APhraseSpokenAcrossThePeriodicRestartIsHeardOnce) {
    SpeechStream stream;
    // The restart comes after a minute of audio, in the middle of the phrase.
    stream.silence(59.6);
    Placed placed = stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.5);
    ASSERT_LT(placed.begin, KeywordSpotter::kRestartIntervalSamples);
    ASSERT_GT(placed.end, KeywordSpotter::kRestartIntervalSamples);
    const size_t restart = static_cast<size_t>(KeywordSpotter::kRestartIntervalSamples);
    std::vector<int16_t> before(stream.samples().begin(), stream.samples().begin() + restart);
    std::vector<int16_t> after(stream.samples().begin() + restart, stream.samples().end());
    std::vector<Detection> found = feed(before, 0);
    EXPECT_EQ(1u, mSpotter->restarts());  // the minute is up
    std::vector<Detection> rest = feed(after, static_cast<int64_t>(restart));
    found.insert(found.end(), rest.begin(), rest.end());
    ASSERT_EQ(1u, found.size());
    expectHeard(found[0], "PURPLE_ELEPHANT", placed, 0);
}

TEST_F(PsKeywordSpotter, AJumpInTheIndicesStartsANewStreamThere) {
    SpeechStream speech;
    speech.silence(0.4);
    Placed placed = speech.add(wws_test::speechClip("orange_bicycle"));
    speech.silence(1.5);
    // The caller skipped audio (detection was off for a while): indices continue further on; or
    // a new caller counts from its own start.
    for (int64_t resumed : {int64_t{9000000}, int64_t{1000}}) {
        std::vector<Detection> found = feed(speech.samples(), resumed);
        ASSERT_EQ(1u, found.size()) << resumed;
        expectHeard(found[0], "ORANGE_BICYCLE", placed, resumed);
    }
}

TEST_F(PsKeywordSpotter, EndingTheSessionReportsAPhraseThatEndsTheAudio) {
    SpeechStream stream;
    stream.silence(0.5);
    Placed placed = stream.add(wws_test::speechClip("purple_elephant"));
    std::vector<Detection> found = feed(stream.samples(), 0);
    mSpotter->endSession(&found);
    ASSERT_EQ(1u, found.size());
    expectHeard(found[0], "PURPLE_ELEPHANT", placed, 0);
    // The next audio starts a new session, wherever its indices begin.
    std::vector<Detection> again = feed(stream.samples(), 100);
    mSpotter->endSession(&again);
    ASSERT_EQ(1u, again.size());
    expectHeard(again[0], "PURPLE_ELEPHANT", placed, 100);
}

}  // namespace

// A local command counts when said on its own, not as a word of a sentence; the manifest's
// "command-pause 0" hears it in both. The threshold is low enough for the sentence's "stop" to be
// heard as such.
TEST_F(PsKeywordSpotter, ALocalCommandCountsOnlyWithAPauseBeforeAndAfterIt) {
    SpeechStream stream;
    stream.silence(0.6);
    Placed alone = stream.add(wws_test::speechClip("stop"));
    stream.silence(1.0);
    Placed sentence = stream.add(wws_test::speechClip("stop_in_a_sentence"));
    stream.silence(1.0);
    for (int pauseMs : {250, 0}) {
        const std::string path = ::testing::TempDir() + "/command-pause.manifest";
        std::ofstream(path) << "acoustic-model /usr/share/pocketsphinx/model/en-us/en-us\n"
                            << "dictionary /usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict\n"
                            << "wake ORANGE_BICYCLE 1e-25 orange bicycle\n"
                            << "command STOP 1e-5 stop\n"
                            << "command-pause " << pauseMs << "\n";
        std::string error;
        ASSERT_EQ(NORVO_SUCCESS, ModelSet::load("set", path, &mSet, &error)) << error;
        mSpotter = KeywordSpotter::create(mSet, {0, 1}, &error);
        ASSERT_NE(nullptr, mSpotter) << error;
        std::vector<Detection> found = feed(stream.samples(), 0);
        std::remove(path.c_str());
        ASSERT_EQ(pauseMs == 0 ? 2u : 1u, found.size()) << "pause " << pauseMs;
        expectHeard(found[0], "STOP", alone, 0);
        if (pauseMs == 0) {
            EXPECT_EQ("STOP", name(found[1]));
            EXPECT_LT(found[1].beginSample, sentence.end);
            EXPECT_GT(found[1].endSample, sentence.begin);
        }
    }
}
