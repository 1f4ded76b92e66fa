#include "ServiceFactory.h"

#include <mutex>

namespace wws_test {

namespace {
std::mutex gStatusLock;
std::vector<std::string> gStatusReports;  // guarded by gStatusLock
void report(const char* which, bool started) {
    std::lock_guard<std::mutex> guard(gStatusLock);
    gStatusReports.push_back(std::string(which) + (started ? ":1" : ":0"));
}
}  // namespace

std::vector<std::string> statusReports() {
    std::lock_guard<std::mutex> guard(gStatusLock);
    return gStatusReports;
}

void clearStatusReports() {
    std::lock_guard<std::mutex> guard(gStatusLock);
    gStatusReports.clear();
}

android::sp<velmar::AudioStream> makeStream(audio_format_t format, uint32_t channels) {
    return new velmar::AudioStream(velmar::AudioStreamFormat{format, 16000, channels}, 1u << 16);
}

android::sp<asp::host::AudioSignalProcessorService> signalProcessor() {
    static android::sp<asp::host::AudioSignalProcessorService> service =
            asp::host::publishService();
    return service;
}

velmar::WakeWordService* constructService(ServiceConfig& c) {
    signalProcessor();
    // Results go nowhere: the service's tests read what reached the engine. The decoder-status
    // callbacks are recorded for statusReports().
    return new velmar::WakeWordService(
            c.packageName, [](NorvoDecoderId, NorvoEnumeratedResult*) {},
            [](NorvoDecoderId, NorvoAcousticEventDetectionResult*) {},
            [](NorvoDecoderId, NorvoEnumeratedResult*) {}, [](NorvoDecoderId, NorvoNttResult*) {},
            [](NorvoDecoderId, NorvoNttEndOfSpeech*) {},
            [](NorvoString, NorvoString, NorvoString, NorvoString, int, int) {},
            [](bool started) { report("aedStatic", started); },
            [](bool started) { report("aedCustom", started); },
            [](bool started) { report("ntt", started); },
            [](bool started) { report("pma", started); }, [](NorvoDMSMetricData*) {},
            [](NorvoDMSQuillanMetricData*) {},
            [](const char*, const char*, NorvoFederatedLearningEvent*) {},
            [](const char*, const char*, NorvoFederatedLearningUnsecuredEvent*) {},
            [](const char*, const char*, NorvoFederatedLearningIdleDetectionResult*) {},
            c.audioStream, c.oneMicAudioStream, c.norvoModelManifestPath,
            c.aedStaticModelManifestPath, c.nttModelPath, c.pmaModelPath, c.aedCustomModelPath,
            c.wakeWords.empty() ? nullptr : c.wakeWords.data(),
            static_cast<int>(c.wakeWords.size()), c.playbackViaAudioRecord,
            c.suppressPlaybackAtInit, c.aedAvailable, c.nearMissEnabled, c.threeChannelInput,
            c.nttEnabled, c.preloadNttModel, c.oneMicEnabled, c.decoderThreadPriority,
            c.audioRecordFrameCount, c.localTimeOffset, c.ttsStreamType);
}

android::sp<velmar::WakeWordService> createService(ServiceConfig& config) {
    return android::sp<velmar::WakeWordService>(constructService(config));
}

}  // namespace wws_test
