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

const char* const kModel = "/usr/share/pocketsphinx/model/en-us/en-us";
const char* const kDictionary = "/usr/share/pocketsphinx/model/en-us/cmudict-en-us.dict";

class PsModelSet : public ::testing::Test {
  protected:
    void SetUp() override {
        char folder[] = "/tmp/ps-model-set-XXXXXX";
        ASSERT_NE(nullptr, mkdtemp(folder));
        mFolder = folder;
    }
    void TearDown() override {
        for (const std::string& file : mFiles) unlink(file.c_str());
        rmdir(mFolder.c_str());
    }

    std::string write(const std::string& name, const std::string& text) {
        std::string path = mFolder + "/" + name;
        std::ofstream(path) << text;
        mFiles.push_back(path);
        return path;
    }

    // A manifest on the Debian model with these keyword lines.
    std::string manifest(const std::string& keywords) {
        return write("test.manifest", std::string("acoustic-model ") + kModel + "\n" +
                                              "dictionary " + kDictionary + "\n" + keywords);
    }

    NorvoStatus load(const std::string& path, std::shared_ptr<const ModelSet>* set,
                     std::string* error) {
        return ModelSet::load("set", path, set, error);
    }

    std::string mFolder;
    std::vector<std::string> mFiles;
};

TEST_F(PsModelSet, AttributesListTheCommandsThenTheWakePhrases) {
    std::string path = manifest(
            "wake ORANGE_BICYCLE 1e-25 orange bicycle\n"
            "command STOP 1e5 stop\n"
            "wake MAGIC_LANTERN 1e-20 magic lantern\n"
            "command SNOOZE 1e3 snooze\n");
    std::shared_ptr<const ModelSet> set;
    std::string error;
    ASSERT_EQ(NORVO_SUCCESS, load(path, &set, &error)) << error;
    EXPECT_EQ(
            "{\"model_attributes\":[{\"model_id\":\"norvo\",\"engine\":\"pocketsphinx\","
            "\"manifest\":\"" +
                    path +
                    "\",\"keyword\":{\"supported-keyword-list\":"
                    "[\"STOP\",\"SNOOZE\",\"ORANGE_BICYCLE\",\"MAGIC_LANTERN\"],"
                    "\"wake-words\":[\"ORANGE_BICYCLE\",\"MAGIC_LANTERN\"],"
                    "\"local-commands\":[\"STOP\",\"SNOOZE\"],"
                    "\"phrases\":{\"ORANGE_BICYCLE\":\"orange bicycle\",\"STOP\":\"stop\","
                    "\"MAGIC_LANTERN\":\"magic lantern\",\"SNOOZE\":\"snooze\"}}}]}",
            set->attributesJson());
    // Every phrase word once, with the dictionary's phones.
    ASSERT_EQ(6u, set->words().size());
    EXPECT_EQ("orange", set->words()[0].first);
    EXPECT_EQ("AO R AH N JH", set->words()[0].second);
}

TEST_F(PsModelSet, AWordMissingFromTheDictionaryFailsUntilAPronunciationIsGiven) {
    std::shared_ptr<const ModelSet> set;
    std::string error;
    std::string path = manifest("wake HEY_VELMAR 1e-20 hey velmar\n");
    EXPECT_EQ(NORVO_PS_UNKNOWN_WORD, load(path, &set, &error));
    EXPECT_EQ(path + ":3: word 'velmar' of phrase 'hey velmar' is not in the dictionary '" +
                      kDictionary + "' (add a 'pronounce' line)",
              error);
    EXPECT_EQ(nullptr, set);

    path = manifest("wake HEY_VELMAR 1e-20 hey velmar\npronounce velmar V EH L M AA R\n");
    ASSERT_EQ(NORVO_SUCCESS, load(path, &set, &error)) << error;
    EXPECT_EQ("V EH L M AA R", set->words()[1].second);
}

TEST_F(PsModelSet, APronunciationWithAPhoneTheModelLacksFails) {
    std::shared_ptr<const ModelSet> set;
    std::string error;
    std::string path = manifest("wake HEY_VELMAR 1e-20 hey velmar\npronounce velmar V EH XX\n");
    EXPECT_EQ(NORVO_PS_UNKNOWN_WORD, load(path, &set, &error));
    EXPECT_EQ(path + ":4: pronunciation of 'velmar' uses a phone the acoustic model does not "
                     "have: 'V EH XX'",
              error);
}

TEST_F(PsModelSet, MissingModelFilesAreUnreadable) {
    std::shared_ptr<const ModelSet> set;
    std::string error;
    std::string path =
            write("test.manifest", "acoustic-model empty\ndictionary " + std::string(kDictionary) +
                                           "\nwake A 1e-20 orange\n");
    EXPECT_EQ(NORVO_PS_MANIFEST_UNREADABLE, load(path, &set, &error));
    EXPECT_EQ(path + ":1: acoustic model folder '" + mFolder +
                      "/empty' has no readable 'mdef': No such file or directory",
              error);

    path = write("test.manifest", std::string("acoustic-model ") + kModel +
                                          "\ndictionary none.dict\nwake A 1e-20 orange\n");
    EXPECT_EQ(NORVO_PS_MANIFEST_UNREADABLE, load(path, &set, &error));
    EXPECT_EQ(path + ":2: cannot read dictionary '" + mFolder +
                      "/none.dict': No such file or directory",
              error);
}

class PsModelSetKeywords : public PsModelSet {
  protected:
    void SetUp() override {
        PsModelSet::SetUp();
        std::string error;
        ASSERT_EQ(NORVO_SUCCESS, load(manifest("wake ORANGE_BICYCLE 1e-25 orange bicycle\n"
                                               "wake MAGIC_LANTERN 1e-20 magic lantern\n"
                                               "command STOP 1e5 stop\n"
                                               "command CANCEL 1e3 cancel\n"),
                                      &mSet, &error))
                << error;
    }

    // The names selected, joined with ','; or "status N: error".
    std::string select(const std::string& keywordSet, const char* json, bool* nearMiss = nullptr) {
        std::vector<size_t> selected;
        bool beta = false;
        std::string error;
        NorvoStatus status = mSet->selectKeywords(keywordSet, json, &selected, &beta, &error);
        if (nearMiss != nullptr) *nearMiss = beta;
        if (status != NORVO_SUCCESS) return "status " + std::to_string(status) + ": " + error;
        std::string names;
        for (size_t i : selected) names += (names.empty() ? "" : ",") + mSet->keywords()[i].name;
        return names;
    }

    std::shared_ptr<const ModelSet> mSet;
};

TEST_F(PsModelSetKeywords, TheEnabledListChoosesInItsOrderEachOnce) {
    EXPECT_EQ("STOP,CANCEL,MAGIC_LANTERN",
              select("norvo",
                     "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\",\"CANCEL\","
                     "\"MAGIC_LANTERN\",\"STOP\"]}}"));
    EXPECT_EQ("ORANGE_BICYCLE",
              select("playback", "{\"keyword\":{\"enabled-keyword-list\":[\"ORANGE_BICYCLE\"]}}"));
}

TEST_F(PsModelSetKeywords, AnEmptyConfigurationEnablesWhatTheKeywordSetCanSpot) {
    EXPECT_EQ("ORANGE_BICYCLE,MAGIC_LANTERN,STOP,CANCEL", select("norvo", "{}"));
    EXPECT_EQ("ORANGE_BICYCLE,MAGIC_LANTERN", select("playback", "{}"));
}

TEST_F(PsModelSetKeywords, NearMissIsReadFromBetaEnabled) {
    bool nearMiss = false;
    EXPECT_EQ("ORANGE_BICYCLE,MAGIC_LANTERN,STOP,CANCEL",
              select("norvo", "{\"betaEnabled\":true}", &nearMiss));
    EXPECT_TRUE(nearMiss);
    EXPECT_EQ("STOP", select("norvo",
                             "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\"]},"
                             "\"betaEnabled\":false}",
                             &nearMiss));
    EXPECT_FALSE(nearMiss);
}

TEST_F(PsModelSetKeywords, AKeywordTheSetCannotSpotIsRefusedNotIgnored) {
    EXPECT_EQ(
            "status 10: enabled keyword 'HELLO_COMPUTER' is not a keyword of model set 'set' for "
            "keyword set 'norvo' (it has ORANGE_BICYCLE, MAGIC_LANTERN, STOP, CANCEL)",
            select("norvo",
                   "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\","
                   "\"HELLO_COMPUTER\"]}}"));
    // The playback decoder hears the device's own output: local commands are not for it.
    EXPECT_EQ(
            "status 10: enabled keyword 'STOP' is not a keyword of model set 'set' for keyword "
            "set 'playback' (it has ORANGE_BICYCLE, MAGIC_LANTERN)",
            select("playback", "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\"]}}"));
    EXPECT_EQ(
            "status 10: unknown keyword set 'wws_ntt' (this engine knows 'norvo' and "
            "'playback')",
            select("wws_ntt", "{}"));
}

TEST_F(PsModelSetKeywords, MalformedConfigurationsAreInvalidArguments) {
    EXPECT_EQ("status 2: decoder configuration is not a JSON object: '{\"keyword\":'",
              select("norvo", "{\"keyword\":"));
    EXPECT_EQ("status 2: decoder configuration is not a JSON object: '[]'", select("norvo", "[]"));
    EXPECT_EQ(
            "status 2: decoder configuration member 'keyword' must hold an array "
            "'enabled-keyword-list' of strings: '{\"keyword\":{\"enabled-keyword-list\":"
            "[\"STOP\",3]}}'",
            select("norvo", "{\"keyword\":{\"enabled-keyword-list\":[\"STOP\",3]}}"));
    EXPECT_EQ(
            "status 2: decoder configuration member 'keyword' must hold an array "
            "'enabled-keyword-list' of strings: '{\"keyword\":[]}'",
            select("norvo", "{\"keyword\":[]}"));
    EXPECT_EQ("status 2: decoder configuration enables no keyword (empty 'enabled-keyword-list')",
              select("norvo", "{\"keyword\":{\"enabled-keyword-list\":[]}}"));
    EXPECT_EQ(
            "status 2: decoder configuration member 'betaEnabled' must be true or false: "
            "'{\"betaEnabled\":1}'",
            select("norvo", "{\"betaEnabled\":1}"));
    EXPECT_EQ("status 2: no decoder configuration", select("norvo", nullptr));
}

}  // namespace
