// Builds a WakeWordService with every constructor argument spelled out in one place, so each test
// changes only the arguments it is about.
#pragma once

#include <WakeWordService.h>
#include <asp/HostAudioSignalProcessor.h>

#include <string>
#include <vector>

namespace wws_test {

// What the service's four decoder-status callbacks were told, in order: "aedStatic:1", "ntt:0", ...
std::vector<std::string> statusReports();
void clearStatusReports();

android::sp<velmar::AudioStream> makeStream(audio_format_t format = AUDIO_FORMAT_PCM_16_BIT,
                                            uint32_t channels = 1);

struct ServiceConfig {
    const char* packageName = "velmar.speech.wakewordservice";
    android::sp<velmar::AudioStream> audioStream = makeStream();
    android::sp<velmar::AudioStream> oneMicAudioStream;
    const char* norvoModelManifestPath = "/models/ww/norvo.manifest";
    const char* aedStaticModelManifestPath = "/models/aed/static.manifest";
    const char* nttModelPath = "/models/ntt/norvo.manifest";
    const char* pmaModelPath = "/models/pma/norvo.manifest";
    const char* aedCustomModelPath = "/models/aed/custom.json";
    std::vector<const char*> wakeWords{"HEYVELMAR"};
    bool playbackViaAudioRecord = false;
    // The playback notifier reports stream states from its own thread at times of its own; tests
    // that do not examine it keep it off, so that their engine call sequences are exact.
    bool suppressPlaybackAtInit = true;
    bool aedAvailable = false;
    bool nearMissEnabled = false;
    bool threeChannelInput = false;
    bool nttEnabled = false;
    bool preloadNttModel = false;
    bool oneMicEnabled = false;
    int decoderThreadPriority = -19;
    int audioRecordFrameCount = 320;
    int32_t localTimeOffset = 3600;
    int ttsStreamType = 9;
};

// The host "audiosignalprocessor" service every service of the tests finds, as on a device (its
// monitor would otherwise search for it, once per lookup wait, for the service's whole life).
// Published on first use.
android::sp<asp::host::AudioSignalProcessorService> signalProcessor();

// Constructs without taking a strong reference, so initialize() has not run yet. The caller owns
// the object through the returned raw pointer until it assigns it to an sp.
velmar::WakeWordService* constructService(ServiceConfig& config);
// Constructs and takes the first strong reference (runs initialize()).
android::sp<velmar::WakeWordService> createService(ServiceConfig& config);

}  // namespace wws_test
