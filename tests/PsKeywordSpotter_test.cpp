// The keyword spotter on real speech (flite clips): each spoken phrase reported once, with a sample
// range on the caller's scale, whatever the chunking, across restarts and index jumps.
//
// The recognizer is deterministic on a fixed clip, so ranges are checked to the sample: a report is
// frame-aligned to the start of the recognizer's stream (the session start, the sample after the
// previous report, or where a session's cepstral mean was measured from), and the expected values
// below were read off this engine and checked against where the clip was placed (within 100 ms).
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

// A report: keyword, first and last sample on the caller's scale.
struct Expected {
    const char* keyword;
    int64_t begin;
    int64_t end;
};

class PsKeywordSpotter : public ::testing::Test {
  protected:
    void SetUp() override { load(WWS_DEFAULT_MANIFEST, {}); }

    // A fresh spotter for the manifest's keywords at indices (all when empty).
    void load(const std::string& manifest, std::vector<size_t> keywords) {
        std::string error;
        ASSERT_EQ(NORVO_SUCCESS, ModelSet::load("set", manifest, &mSet, &error)) << error;
        if (keywords.empty()) {
            for (size_t i = 0; i < mSet->keywords().size(); ++i) keywords.push_back(i);
        }
        mSpotter = KeywordSpotter::create(mSet, keywords, &error);
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

    // The reports are exactly these, shifted by base; each lies where its clip was placed.
    void expectReports(const std::vector<Detection>& found, const std::vector<Expected>& expected,
                       const std::vector<Placed>& placed, int64_t base) {
        ASSERT_EQ(expected.size(), found.size()) << "base " << base;
        for (size_t i = 0; i < found.size(); ++i) {
            const Detection& d = found[i];
            EXPECT_EQ(expected[i].keyword, mSet->keywords()[d.keyword].name);
            EXPECT_EQ(base + expected[i].begin, d.beginSample) << "report " << i << " base " << base;
            EXPECT_EQ(base + expected[i].end, d.endSample) << "report " << i << " base " << base;
            EXPECT_NEAR(static_cast<double>(placed[i].begin + base), d.beginSample, k100Ms);
            EXPECT_NEAR(static_cast<double>(placed[i].end + base), d.endSample, k100Ms);
            EXPECT_GE(d.scoreLog10, std::log10(mSet->keywords()[d.keyword].threshold));
            EXPECT_GT(d.decidedAt, d.endSample);
        }
    }

    std::shared_ptr<const ModelSet> mSet;
    std::unique_ptr<KeywordSpotter> mSpotter;
};

TEST_F(PsKeywordSpotter, ReportsAPhraseOnceToTheSampleWhateverTheChunkingIndicesAndPastSessions) {
    // Frames where the recognizer hears no speech count too, or the range would drift.
    SpeechStream stream;
    stream.roomNoise(1.5);
    Placed placed = stream.add(wws_test::speechClip("purple_elephant"));
    stream.roomNoise(2.0);
    const std::vector<Expected> expected = {{"PURPLE_ELEPHANT", 23200, 38719}};
    // One spotter throughout. Each jump of the indices, back (a new caller counts from its own
    // start) or forward (detection was off for a while), starts a new session, which measures its
    // own cepstral mean: every session hears the phrase exactly as the first one did.
    double score = 0;
    for (auto [base, chunk] : {std::pair<int64_t, size_t>{0, 320}, {7000000, 16000}, {1000, 37},
                               {300, 320}}) {
        std::vector<Detection> found = feed(stream.samples(), base, chunk);
        expectReports(found, expected, {placed}, base);
        if (base == 0) score = found.at(0).scoreLog10;
        EXPECT_EQ(score, found.at(0).scoreLog10) << "base " << base;
    }
}

// A phrase said from a session's very first sample (a clip that starts with it) is heard, and
// heard alike in a later session on the same spotter, whatever the session before left half heard.
TEST_F(PsKeywordSpotter, APhraseFromASessionsFirstSampleIsHeardAlikeInEverySession) {
    SpeechStream stream;
    Placed placed = stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.0);
    std::vector<int16_t> half = wws_test::speechClip("purple_elephant");
    half.resize(half.size() / 2);
    double score = 0;
    for (int64_t base : {int64_t{0}, int64_t{100000}}) {
        std::vector<Detection> found = feed(stream.samples(), base);
        ASSERT_EQ(1u, found.size()) << "base " << base;
        EXPECT_EQ(base, found[0].beginSample);  // it cannot have begun before the session
        EXPECT_NEAR(static_cast<double>(placed.end + base), found[0].endSample, k100Ms);
        if (base == 0) score = found[0].scoreLog10;
        EXPECT_EQ(score, found[0].scoreLog10) << "base " << base;
        EXPECT_TRUE(feed(half, base + 50000).empty());
    }
}

TEST_F(PsKeywordSpotter, APhraseSpokenStraightAfterAReportedOneIsHeardToo) {
    // The recognizer is restarted after the first report, when it has already decoded the start
    // of the second phrase: that start is decoded again, from the sample after the report. Where
    // and how it restarts must not depend on how the audio was cut.
    SpeechStream stream;
    stream.silence(0.5);
    Placed first = stream.add(wws_test::speechClip("orange_bicycle"));
    stream.silence(0.1);
    Placed second = stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.5);
    std::vector<double> scores;
    for (size_t chunk : {size_t{320}, size_t{16000}}) {
        std::vector<Detection> found = feed(stream.samples(), 0, chunk);
        expectReports(found, {{"ORANGE_BICYCLE", 7360, 25759}, {"PURPLE_ELEPHANT", 27040, 42079}},
                      {first, second}, 0);
        for (const Detection& d : found) scores.push_back(d.scoreLog10);
    }
    ASSERT_EQ(4u, scores.size());
    EXPECT_EQ(scores[0], scores[2]);
    EXPECT_EQ(scores[1], scores[3]);
}

TEST_F(PsKeywordSpotter, APhraseSpokenAcrossThePeriodicRestartIsHeardOnce) {
    SpeechStream stream;
    // The restart comes after a minute of audio, in the middle of the phrase.
    stream.silence(59.6);
    Placed placed = stream.add(wws_test::speechClip("purple_elephant"));
    stream.silence(1.5);
    const int64_t restart = KeywordSpotter::kRestartIntervalSamples;
    ASSERT_LT(placed.begin, restart);
    ASSERT_GT(placed.end, restart);
    std::vector<int16_t> before(stream.samples().begin(), stream.samples().begin() + restart);
    std::vector<int16_t> after(stream.samples().begin() + restart, stream.samples().end());
    std::vector<Detection> found = feed(before, 0);
    EXPECT_EQ(1u, mSpotter->restarts());  // the minute is up
    std::vector<Detection> rest = feed(after, restart);
    found.insert(found.end(), rest.begin(), rest.end());
    // The restarted stream begins kRefeedSamples before the minute: the range is framed from there.
    expectReports(found, {{"PURPLE_ELEPHANT", 952800, 968319}}, {placed}, 0);
}

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
        load(path, {0, 1});
        std::vector<Detection> found = feed(stream.samples(), 0);
        std::remove(path.c_str());
        ASSERT_EQ(pauseMs == 0 ? 2u : 1u, found.size()) << "pause " << pauseMs;
        EXPECT_EQ("STOP", mSet->keywords()[found[0].keyword].name);
        EXPECT_NEAR(static_cast<double>(alone.begin), found[0].beginSample, k100Ms);
        if (pauseMs == 0) {
            EXPECT_EQ("STOP", mSet->keywords()[found[1].keyword].name);
            EXPECT_LT(found[1].beginSample, sentence.end);
            EXPECT_GT(found[1].endSample, sentence.begin);
        }
    }
}

}  // namespace
