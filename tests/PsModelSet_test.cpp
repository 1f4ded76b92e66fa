// Model sets of the PocketSphinx engine: checking a manifest against its dictionary and acoustic
// model, the attributes the service reads, and which keywords a decoder configuration enables.
#include <gtest/gtest.h>
#include <norvo_ps/NorvoPs.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "ModelSet.h"

using norvo_ps::ModelSet;

namespace {

const std::string kModel = "/usr/share/pocketsphinx/model/en-us/en-us";
const std::string kDictionary = "/usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict";
const std::string kHeader = "acoustic-model " + kModel + "\ndictionary " + kDictionary + "\n";

class PsModelSet : public ::testing::Test {
  protected:
    void SetUp() override {
        char folder[] = "/tmp/ps-model-set-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder));
        mFolder = folder;
        mPath = mFolder + "/test.manifest";
    }
    void TearDown() override {
        unlink(mPath.c_str());
        rmdir(mFolder.c_str());
    }

    NorvoStatus load(const std::string& text, std::string* error) {
        std::ofstream(mPath) << text;
        mSet.reset();
        return ModelSet::load("set", mPath, &mSet, error);
    }

    std::string mFolder, mPath;
    std::shared_ptr<const ModelSet> mSet;
};

TEST_F(PsModelSet, AttributesListTheCommandsThenTheWakePhrases) {
    std::string error;
    ASSERT_EQ(NORVO_SUCCESS, load(kHeader + "wake ORANGE_BICYCLE 1e-25 orange bicycle\n"
                                            "command STOP 1e5 stop\n"
                                            "wake MAGIC_LANTERN 1e-20 magic lantern\n"
                                            "command SNOOZE 1e3 snooze\n",
                                  &error))
            << error;
    EXPECT_EQ(
            "{\"model_attributes\":[{\"model_id\":\"norvo\",\"engine\":\"pocketsphinx\","
            "\"manifest\":\"" +
                    mPath +
                    "\",\"keyword\":{\"supported-keyword-list\":"
                    "[\"STOP\",\"SNOOZE\",\"ORANGE_BICYCLE\",\"MAGIC_LANTERN\"],"
                    "\"wake-words\":[\"ORANGE_BICYCLE\",\"MAGIC_LANTERN\"],"
                    "\"local-commands\":[\"STOP\",\"SNOOZE\"],"
                    "\"phrases\":{\"ORANGE_BICYCLE\":\"orange bicycle\",\"STOP\":\"stop\","
                    "\"MAGIC_LANTERN\":\"magic lantern\",\"SNOOZE\":\"snooze\"}}}]}",
            mSet->attributesJson());
}

TEST_F(PsModelSet, WordsAndFilesItCannotUseFailWithTheirStatusAndLine) {
    std::string error;
    const struct {
        std::string text;
        NorvoStatus status;
        std::string message;  // after "<manifest>:"
    } cases[] = {
            {kHeader + "wake HEY_VELMAR 1e-20 hey velmar\n", NORVO_PS_UNKNOWN_WORD,
             "3: word 'velmar' of phrase 'hey velmar' is not in the dictionary '" + kDictionary +
                     "' (add a 'pronounce' line)"},
            {kHeader + "wake HEY_VELMAR 1e-20 hey velmar\npronounce velmar V EH XX\n",
             NORVO_PS_UNKNOWN_WORD,
             "4: pronunciation of 'velmar' uses a phone the acoustic model does not have: "
             "'V EH XX'"},
            {"acoustic-model empty\ndictionary " + kDictionary + "\nwake A 1e-20 orange\n",
             NORVO_PS_MANIFEST_UNREADABLE,
             "1: acoustic model folder '" + mFolder +
                     "/empty' has no readable 'mdef': No such file or directory"},
            {"acoustic-model " + kModel + "\ndictionary none.dict\nwake A 1e-20 orange\n",
             NORVO_PS_MANIFEST_UNREADABLE,
             "2: cannot read dictionary '" + mFolder + "/none.dict': No such file or directory"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.status, load(c.text, &error)) << c.text;
        EXPECT_EQ(mPath + ":" + c.message, error);
        EXPECT_EQ(nullptr, mSet);
    }
    // A pronunciation brings the word in.
    ASSERT_EQ(NORVO_SUCCESS,
              load(kHeader + "wake HEY_VELMAR 1e-20 hey velmar\npronounce velmar V EH L M AA R\n",
                   &error))
            << error;
    EXPECT_EQ("V EH L M AA R", mSet->words()[1].second);
}

TEST_F(PsModelSet, TheDecoderConfigurationChoosesKeywordsOrIsRefusedWithTheReason) {
    std::string error;
    ASSERT_EQ(NORVO_SUCCESS, load(kHeader + "wake ORANGE_BICYCLE 1e-25 orange bicycle\n"
                                            "wake MAGIC_LANTERN 1e-20 magic lantern\n"
                                            "command STOP 1e5 stop\n"
                                            "command CANCEL 1e3 cancel\n",
                                  &error))
            << error;
    const std::string list = "{\"keyword\":{\"enabled-keyword-list\":";
    const struct {
        const char* keywordSet;
        std::string json;  // "null" for none
        std::string result;  // the names chosen, or "status N: error"
        bool nearMiss;
    } cases[] = {
            // The enabled list chooses, in its order, each once.
            {"norvo", list + "[\"STOP\",\"CANCEL\",\"MAGIC_LANTERN\",\"STOP\"]}}",
             "STOP,CANCEL,MAGIC_LANTERN", false},
            {"playback", list + "[\"ORANGE_BICYCLE\"]}}", "ORANGE_BICYCLE", false},
            // Without a list, whatever the keyword set can spot; the playback decoder hears the
            // device's own output: local commands are not for it.
            {"norvo", "{}", "ORANGE_BICYCLE,MAGIC_LANTERN,STOP,CANCEL", false},
            {"playback", "{}", "ORANGE_BICYCLE,MAGIC_LANTERN", false},
            {"norvo", "{\"betaEnabled\":true}", "ORANGE_BICYCLE,MAGIC_LANTERN,STOP,CANCEL", true},
            {"norvo", list + "[\"STOP\"]},\"betaEnabled\":false}", "STOP", false},
            {"norvo", list + "[\"STOP\",\"HELLO_COMPUTER\"]}}",
             "status 10: enabled keyword 'HELLO_COMPUTER' is not a keyword of model set 'set' for "
             "keyword set 'norvo' (it has ORANGE_BICYCLE, MAGIC_LANTERN, STOP, CANCEL)",
             false},
            {"playback", list + "[\"STOP\"]}}",
             "status 10: enabled keyword 'STOP' is not a keyword of model set 'set' for keyword "
             "set 'playback' (it has ORANGE_BICYCLE, MAGIC_LANTERN)",
             false},
            {"wws_ntt", "{}",
             "status 10: unknown keyword set 'wws_ntt' (this engine knows 'norvo' and 'playback')",
             false},
            {"norvo", "{\"keyword\":",
             "status 2: decoder configuration is not a JSON object: '{\"keyword\":'", false},
            {"norvo", "[]", "status 2: decoder configuration is not a JSON object: '[]'", false},
            {"norvo", list + "[\"STOP\",3]}}",
             "status 2: decoder configuration member 'keyword' must hold an array "
             "'enabled-keyword-list' of strings: '" +
                     list + "[\"STOP\",3]}}'",
             false},
            {"norvo", "{\"keyword\":[]}",
             "status 2: decoder configuration member 'keyword' must hold an array "
             "'enabled-keyword-list' of strings: '{\"keyword\":[]}'",
             false},
            {"norvo", list + "[]}}",
             "status 2: decoder configuration enables no keyword (empty 'enabled-keyword-list')",
             false},
            {"norvo", "{\"betaEnabled\":1}",
             "status 2: decoder configuration member 'betaEnabled' must be true or false: "
             "'{\"betaEnabled\":1}'",
             false},
            {"norvo", "null", "status 2: no decoder configuration", false},
    };
    for (const auto& c : cases) {
        std::vector<size_t> selected;
        bool nearMiss = !c.nearMiss;
        NorvoStatus status = mSet->selectKeywords(
                c.keywordSet, c.json == "null" ? nullptr : c.json.c_str(), &selected, &nearMiss,
                &error);
        std::string names;
        for (size_t i : selected) names += (names.empty() ? "" : ",") + mSet->keywords()[i].name;
        EXPECT_EQ(c.result, status == NORVO_SUCCESS
                                    ? names
                                    : "status " + std::to_string(status) + ": " + error)
                << c.json;
        if (status == NORVO_SUCCESS) {
            EXPECT_EQ(c.nearMiss, nearMiss) << c.json;
        }
    }
}

}  // namespace
