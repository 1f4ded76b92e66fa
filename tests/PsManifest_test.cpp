// The manifest parser of the PocketSphinx engine: what a valid manifest yields, and the exact
// one-line reason (with its line number) for each kind of malformed line.
#include <gtest/gtest.h>
#include <norvo_ps/NorvoPs.h>

#include <string>

#include "Manifest.h"

using norvo_ps::Manifest;

namespace {

const char* const kPath = "/models/ww/test.manifest";

NorvoStatus parse(const std::string& text, Manifest* manifest, std::string* error) {
    return Manifest::parse(kPath, text, manifest, error);
}

// A valid manifest with one line replaced (or added when line is past the end).
std::string withLine(int line, const std::string& replacement) {
    std::vector<std::string> lines = {"acoustic-model en-us", "dictionary /dict/cmu.dict",
                                      "wake PURPLE_ELEPHANT 1e-25 purple elephant",
                                      "command STOP 1e5 stop"};
    if (line > static_cast<int>(lines.size())) {
        lines.push_back(replacement);
    } else {
        lines[line - 1] = replacement;
    }
    std::string text;
    for (const std::string& l : lines) text += l + "\n";
    return text;
}

TEST(PsManifest, ReadsEveryDirective) {
    Manifest manifest;
    std::string error;
    ASSERT_EQ(NORVO_SUCCESS, parse("# comment\n"
                                   "\n"
                                   "   acoustic-model   models/en us  \n"
                                   "dictionary /usr/share/dict/cmu.dict\n"
                                   "wake  ORANGE_BICYCLE  1e-25  Orange   BICYCLE\n"
                                   "command STOP 1e5 stop\n"
                                   "pronounce Velmar v eh l m aa r\n"
                                   "detection-delay 7\n"
                                   "command-pause 400\n"
                                   "frequency-warp 1.1\n",
                                   &manifest, &error))
            << error;
    EXPECT_EQ("/models/ww/models/en us", manifest.acousticModel());  // relative to the manifest
    EXPECT_EQ(3, manifest.acousticModelLine());
    EXPECT_EQ("/usr/share/dict/cmu.dict", manifest.dictionary());
    ASSERT_EQ(2u, manifest.keywords().size());
    const norvo_ps::ManifestKeyword& wake = manifest.keywords()[0];
    EXPECT_EQ("ORANGE_BICYCLE", wake.name);
    EXPECT_EQ("orange bicycle", wake.phrase);
    EXPECT_EQ("1e-25", wake.thresholdText);
    EXPECT_DOUBLE_EQ(1e-25, wake.threshold);
    EXPECT_EQ(5, wake.line);
    EXPECT_TRUE(manifest.keywords()[1].command);
    ASSERT_EQ(1u, manifest.pronunciations().size());
    EXPECT_EQ("velmar", manifest.pronunciations()[0].word);
    EXPECT_EQ("V EH L M AA R", manifest.pronunciations()[0].phones);
    EXPECT_EQ(7, manifest.detectionDelayFrames());
    EXPECT_EQ(400, manifest.commandPauseMs());
    EXPECT_DOUBLE_EQ(1.1, manifest.frequencyWarp());
}

TEST(PsManifest, DefaultsAndRelativePathsWithoutAFolder) {
    Manifest manifest;
    std::string error;
    ASSERT_EQ(NORVO_SUCCESS, Manifest::parse("plain.manifest", withLine(9, ""), &manifest, &error))
            << error;
    EXPECT_EQ("./en-us", manifest.acousticModel());
    EXPECT_EQ(Manifest::kDefaultDetectionDelayFrames, manifest.detectionDelayFrames());
    EXPECT_EQ(Manifest::kDefaultCommandPauseMs, manifest.commandPauseMs());
    EXPECT_EQ(1.0, manifest.frequencyWarp());
}

struct BadLine {
    int line;
    std::string text;
    std::string message;
};

TEST(PsManifest, NamesTheLineAndTheFaultOfEveryMalformedOrMissingLine) {
    const std::string at = std::string(kPath) + ":";
    const BadLine cases[] = {
            {5, "wakee X 1e-5 x",
             at + "5: unknown directive 'wakee' (expected acoustic-model, dictionary, wake, "
                  "command, pronounce, detection-delay, command-pause or frequency-warp)"},
            {3, "wake PURPLE_ELEPHANT 1e-25",
             at + "3: 'wake' needs a name, a threshold and at least one word"},
            {4, "command STOP",
             at + "4: 'command' needs a name, a threshold and at least one word"},
            {3, "wake purple 1e-25 purple",
             at + "3: keyword name 'purple' must be upper-case letters, digits and '_'"},
            {3, "wake PURPLE-ELEPHANT 1e-25 purple",
             at + "3: keyword name 'PURPLE-ELEPHANT' must be upper-case letters, digits and '_'"},
            {3, "wake P 0 purple", at + "3: threshold '0' must be a number above 0 (e.g. 1e-20)"},
            {3, "wake P -1e-5 purple",
             at + "3: threshold '-1e-5' must be a number above 0 (e.g. 1e-20)"},
            {3, "wake P 1e-5x purple",
             at + "3: threshold '1e-5x' must be a number above 0 (e.g. 1e-20)"},
            {3, "wake P nan purple",
             at + "3: threshold 'nan' must be a number above 0 (e.g. 1e-20)"},
            {3, "wake P 1e-5 purple/elephant",
             at + "3: word 'purple/elephant' may hold only letters, digits and ' . _ -"},
            {5, "wake STOP 1e-5 halt", at + "5: keyword 'STOP' is already defined on line 4"},
            {5, "command HALT 1e-5 STOP",
             at + "5: phrase 'stop' is already used by 'STOP' on line 4"},
            {5, "acoustic-model other", at + "5: 'acoustic-model' is already given on line 1"},
            {1, "acoustic-model", at + "1: 'acoustic-model' needs a folder"},
            {2, "dictionary   ", at + "2: 'dictionary' needs a file"},
            {5, "pronounce velmar", at + "5: 'pronounce' needs a word and at least one phone"},
            {5, "pronounce v/x V", at + "5: word 'v/x' may hold only letters, digits and ' . _ -"},
            {5, "detection-delay 51",
             at + "5: 'detection-delay' needs a whole number of frames from 0 to 50"},
            {5, "detection-delay -1",
             at + "5: 'detection-delay' needs a whole number of frames from 0 to 50"},
            {5, "detection-delay 3 frames",
             at + "5: 'detection-delay' needs a whole number of frames from 0 to 50"},
            {5, "command-pause 2001",
             at + "5: 'command-pause' needs a whole number of milliseconds from 0 to 2000"},
            {5, "pronounce velmar V EH L\npronounce VELMAR V AA L",
             at + "6: pronunciation of 'velmar' is already given on line 5"},
            {5, "detection-delay 2\ndetection-delay 4", at + "6: 'detection-delay' is given twice"},
            {5, "frequency-warp 1.3", at + "5: 'frequency-warp' needs a factor from 0.8 to 1.25"},
            {5, "frequency-warp nan", at + "5: 'frequency-warp' needs a factor from 0.8 to 1.25"},
            // A model, a dictionary and a wake phrase are required: local commands alone do not
            // make a wake-word model set.
            {1, "# none", std::string(kPath) + ": no 'acoustic-model' line"},
            {2, "# none", std::string(kPath) + ": no 'dictionary' line"},
            {3, "# none",
             std::string(kPath) + ": no 'wake' line (a model set needs at least one wake phrase)"},
    };
    for (const BadLine& bad : cases) {
        Manifest manifest;
        std::string error;
        EXPECT_EQ(NORVO_PS_MANIFEST_MALFORMED,
                  parse(withLine(bad.line, bad.text), &manifest, &error))
                << bad.text;
        EXPECT_EQ(bad.message, error) << bad.text;
    }
}

}  // namespace
