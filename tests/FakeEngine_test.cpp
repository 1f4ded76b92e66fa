// The fake engine keeps the promises the service relies on: ids reusable after deletion,
// attributes delivered before the getter returns, null registrations removing callbacks, real
// decoder threads, decoders deleted before their model set, and scripted statuses.
#include <gtest/gtest.h>
#include <norvo_fake/FakeNorvo.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "Wait.h"

namespace {

class FakeEngine : public testing::Test {
  protected:
    void SetUp() override { norvo_fake::reset(); }
};

NorvoStatus newDecoder(const char* id, const char* modelSet = "ms") {
    return NorvoDecoder_NewSpotterAudioDecoder(
            id, modelSet, "norvo", NorvoDecoder_NewNorvoMultichannelAudioFormat_Default(), "{}");
}

void copyAttributes(const char* json, void* userData) {
    *static_cast<std::string*>(userData) = json;
}

std::atomic<int> gEnumerated{0};
std::atomic<int> gEnumeratedThread{0};
void countEnumerated(NorvoDecoderId, NorvoEnumeratedResult*) {
    gEnumeratedThread = static_cast<int>(syscall(SYS_gettid));
    ++gEnumerated;
}

}  // namespace

TEST_F(FakeEngine, IdsCanBeCreatedAgainAfterDeletion) {
    ASSERT_EQ(0, NorvoModelSet_New("ms", "/m/a.manifest", ""));
    EXPECT_EQ(norvo_fake::kAlreadyExists, NorvoModelSet_New("ms", "/m/a.manifest", ""));
    ASSERT_EQ(0, newDecoder("dec"));
    EXPECT_EQ(norvo_fake::kAlreadyExists, newDecoder("dec"));
    // A model set with decoders cannot go first.
    EXPECT_EQ(norvo_fake::kInUse, NorvoModelSet_Delete("ms"));
    ASSERT_EQ(0, NorvoDecoder_Delete("dec"));
    ASSERT_EQ(0, NorvoModelSet_Delete("ms"));
    EXPECT_EQ(norvo_fake::kNotFound, NorvoModelSet_Delete("ms"));
    EXPECT_EQ(norvo_fake::kNotFound, NorvoDecoder_Delete("dec"));

    ASSERT_EQ(0, NorvoModelSet_New("ms", "/m/b.manifest", ""));
    EXPECT_EQ(0, newDecoder("dec"));
    norvo_fake::ModelSetInfo info;
    ASSERT_TRUE(norvo_fake::modelSet("ms", &info));
    EXPECT_EQ("/m/b.manifest", info.manifestPath);
}

TEST_F(FakeEngine, AttributesArriveBeforeTheGetterReturns) {
    ASSERT_EQ(0, NorvoModelSet_New("ms", "/m.manifest", ""));
    std::string text;
    ASSERT_EQ(0, NorvoModelSet_GetModelSetAttributes("ms", copyAttributes, &text));
    EXPECT_EQ(norvo_fake::kDefaultModelSetAttributes, text);

    norvo_fake::setModelSetAttributes("ms", "{\"model_attributes\":[]}");
    ASSERT_EQ(0, NorvoModelSet_GetModelSetAttributes("ms", copyAttributes, &text));
    EXPECT_EQ("{\"model_attributes\":[]}", text);

    text = "untouched";
    EXPECT_EQ(norvo_fake::kNotFound,
              NorvoModelSet_GetModelSetAttributes("other", copyAttributes, &text));
    EXPECT_EQ("untouched", text);
}

TEST_F(FakeEngine, DecoderThreadsAreRealAndRunCallbacks) {
    ASSERT_EQ(0, NorvoModelSet_New("ms", "/m.manifest", ""));
    ASSERT_EQ(0, newDecoder("a"));
    ASSERT_EQ(0, newDecoder("b"));
    NorvoDecoderThreadIdResult a = NorvoDecoder_GetDecoderThreadId("a");
    NorvoDecoderThreadIdResult b = NorvoDecoder_GetDecoderThreadId("b");
    ASSERT_EQ(0, a.status);
    ASSERT_EQ(0, b.status);
    EXPECT_NE(a.threadId, b.threadId);
    EXPECT_NE(static_cast<int>(syscall(SYS_gettid)), a.threadId);
    EXPECT_EQ(norvo_fake::kNotFound, NorvoDecoder_GetDecoderThreadId("none").status);

    // A result fired on decoder a's thread arrives on that very thread.
    ASSERT_EQ(0, NorvoApi_SetEnumeratedResultCallback(countEnumerated));
    gEnumerated = 0;
    ASSERT_TRUE(norvo_fake::runOnDecoderThread(
            "a",
            [] {
                NorvoEnumeratedResult result{};
                norvo_fake::callbacks().enumeratedResult("a", &result);
            },
            /*wait=*/false));
    ASSERT_TRUE(wws_test::waitFor([] { return gEnumerated.load() == 1; }));
    EXPECT_EQ(a.threadId, gEnumeratedThread.load());
    EXPECT_FALSE(norvo_fake::runOnDecoderThread("none", [] {}));
}

