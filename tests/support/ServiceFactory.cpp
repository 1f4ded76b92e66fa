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

void testEnumeratedResult(NorvoDecoderId, NorvoEnumeratedResult*) {}
void testAcousticEventResult(NorvoDecoderId, NorvoAcousticEventDetectionResult*) {}
void testLocalCommandResult(NorvoDecoderId, NorvoEnumeratedResult*) {}
void testNttResult(NorvoDecoderId, NorvoNttResult*) {}
void testNttEndOfSpeech(NorvoDecoderId, NorvoNttEndOfSpeech*) {}
void testJsondata(NorvoString, NorvoString, NorvoString, NorvoString, int, int) {}
void testAedStaticStatus(bool started) { report("aedStatic", started); }
void testAedCustomStatus(bool started) { report("aedCustom", started); }
void testNttStatus(bool started) { report("ntt", started); }
void testPmaStatus(bool started) { report("pma", started); }
void testRecordMetrics(NorvoDMSMetricData*) {}
void testRecordQuillanMetrics(NorvoDMSQuillanMetricData*) {}
void testFederatedLearningEvent(const char*, const char*, NorvoFederatedLearningEvent*) {}
void testFederatedLearningUnsecured(const char*, const char*,
                                    NorvoFederatedLearningUnsecuredEvent*) {}
void testFederatedLearningIdle(const char*, const char*,
                               NorvoFederatedLearningIdleDetectionResult*) {}

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
    return new velmar::WakeWordService(
            c.packageName, testEnumeratedResult, testAcousticEventResult, testLocalCommandResult,
            testNttResult, testNttEndOfSpeech, testJsondata, testAedStaticStatus,
            testAedCustomStatus, testNttStatus, testPmaStatus, testRecordMetrics,
            testRecordQuillanMetrics, testFederatedLearningEvent, testFederatedLearningUnsecured,
            testFederatedLearningIdle, c.audioStream, c.oneMicAudioStream, c.norvoModelManifestPath,
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
