// The engine's model-set attributes, as any bytes, through a real model switch of a live service:
// the service must never crash on them, and whenever it builds keyword decoders their
// configurations must be valid JSON listing the supported local commands first and then exactly
// the wake words it was given.
#include <ServiceFactory.h>
#include <NorvoIds.h>
#include <WakeWordService.h>
#include <norvo_fake/FakeNorvo.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <cstdint>
#include <cstdlib>
#include <set>
#include <string>
#include <vector>

#include "FuzzLog.h"

namespace {

// Wake words that need escaping, so that attributes naming them are matched byte for byte.
const char* const kWakeWords[] = {"HEYVELMAR", "OK \"HOUSE\"", "back\\slash\n"};
constexpr int kWakeWordCount = 3;

// Lives until the process ends and is never destroyed: its destructor would run after the test
// support's own statics are gone.
velmar::WakeWordService* gService = nullptr;

void require(bool condition, const char* what) {
    if (!condition) {
        __builtin_fprintf(stderr, "fuzz check failed: %s\n", what);
        abort();
    }
}

std::vector<std::string> enabledKeywords(const std::string& config) {
    rapidjson::Document parsed;
    parsed.Parse(config.c_str(), config.size());
    require(!parsed.HasParseError(), "decoder configuration is valid JSON");
    const rapidjson::Value* list = rapidjson::Pointer("/keyword/enabled-keyword-list").Get(parsed);
    require(list != nullptr && list->IsArray(), "decoder configuration lists its keywords");
    std::vector<std::string> keywords;
    for (const auto& item : list->GetArray()) {
        require(item.IsString(), "keywords are strings");
        keywords.emplace_back(item.GetString(), item.GetStringLength());
    }
    return keywords;
}

void checkDecoder(const char* id, bool localCommandsAllowed) {
    norvo_fake::DecoderInfo info;
    if (!norvo_fake::decoder(id, &info)) return;  // the attributes did not allow building it
    const std::vector<std::string> keywords = enabledKeywords(info.config);
    require(keywords.size() >= kWakeWordCount, "every wake word is enabled");
    const size_t commands = keywords.size() - kWakeWordCount;
    require(localCommandsAllowed || commands == 0, "playback decoder has no local commands");
    std::set<std::string> seen;
    for (size_t i = 0; i < commands; ++i) {
        require(keywords[i] == "STOP" || keywords[i] == "CANCEL" || keywords[i] == "SNOOZE",
                "only STOP, CANCEL and SNOOZE precede the wake words");
        require(seen.insert(keywords[i]).second, "no local command twice");
    }
    for (int i = 0; i < kWakeWordCount; ++i) {
        require(keywords[commands + i] == kWakeWords[i], "wake words in the order given");
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    wws_fuzz::silenceLogs();
    wws_test::ServiceConfig config;
    config.playbackViaAudioRecord = true;
    gService = wws_test::constructService(config);
    gService->incStrong(&gService);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Forget the previous input's decoders and recorded calls, so memory stays flat over
    // millions of runs; the service then deletes decoders the engine no longer knows, which it
    // must survive too.
    norvo_fake::reset();
    norvo_fake::setModelSetAttributes(velmar::kWakeWordModelSetId,
                                      std::string(reinterpret_cast<const char*>(data), size));
    const char* wakeWords[kWakeWordCount];
    for (int i = 0; i < kWakeWordCount; ++i) wakeWords[i] = kWakeWords[i];
    gService->switchNorvoModel("/models/ww/norvo.manifest", wakeWords, kWakeWordCount);
    checkDecoder(velmar::kInputDecoderId, true);
    checkDecoder(velmar::kPlaybackDecoderId, false);
    return 0;
}
