// Natives of velmar.speech.tools.HostControl: what the Java host programs need of the host
// platform besides the service itself. They play the device's part: the microphone (PCM from
// standard input or a file, or an ALSA device, on the hotword source), the Android log (to a
// file), and, for the bridge benchmark, an engine thread that hands results to the bridge. Host
// tools only; never part of the service.
#include "LiveInput.h"

#include <android/log.h>
#include <asp/HostAudioSignalProcessor.h>
#include <fcntl.h>
#include <jni.h>
#include <media/AlsaPcm.h>
#include <media/HostAudio.h>
#include <norvo/NorvoApi.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// The bridge's wake-word callback, as the engine calls it (exported by libwakewordservice.so).
void norvoEnumerationEventCallback_JNI(NorvoDecoderId decoderId, NorvoEnumeratedResult* result);

namespace {

constexpr audio_source_t kMicrophone = AUDIO_SOURCE_HOTWORD;  // 1999, the service's hotword source

std::mutex gLogLock;
FILE* gLogFile = nullptr;          // guarded by gLogLock
bool gLogEcho = false;             // guarded by gLogLock
std::vector<std::string> gErrors;  // ERROR lines so far; guarded by gLogLock

android::sp<android::host::FdPcm> gMicrophone;  // set and read on Java threads
android::sp<android::host::AlsaPcm> gAlsa;       // set and read on Java threads

void fileLogger(const struct __android_logger_data* data, const char* message) {
    static const char kLevels[] = "??VDIWEF";
    char level = data->priority < 8 ? kLevels[data->priority] : '?';
    timeval now{};
    gettimeofday(&now, nullptr);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    snprintf(stamp, sizeof(stamp), "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min,
             local.tm_sec, static_cast<long>(now.tv_usec / 1000));
    const char* tag = data->tag != nullptr ? data->tag : "";
    std::lock_guard<std::mutex> guard(gLogLock);
    if (gLogFile != nullptr) {
        fprintf(gLogFile, "%s %c %s: %s\n", stamp, level, tag, message);
        fflush(gLogFile);
    }
    if (gLogEcho) fprintf(stderr, "%s %c %s: %s\n", stamp, level, tag, message);
    if (data->priority >= ANDROID_LOG_ERROR) gErrors.push_back(message);
}

std::string text(JNIEnv* env, jstring string) {
    const char* chars = env->GetStringUTFChars(string, nullptr);
    std::string copy = chars == nullptr ? "" : chars;
    if (chars != nullptr) env->ReleaseStringUTFChars(string, chars);
    return copy;
}

// A Java String[] of the texts; an empty text becomes null.
jobjectArray strings(JNIEnv* env, const std::vector<std::string>& texts) {
    jclass stringClass = env->FindClass("java/lang/String");
    if (stringClass == nullptr) return nullptr;
    jobjectArray array =
            env->NewObjectArray(static_cast<jsize>(texts.size()), stringClass, nullptr);
    for (size_t i = 0; array != nullptr && i < texts.size(); ++i) {
        if (texts[i].empty()) continue;
        jstring element = env->NewStringUTF(texts[i].c_str());
        if (element == nullptr) break;
        env->SetObjectArrayElement(array, static_cast<jsize>(i), element);
        env->DeleteLocalRef(element);
    }
    env->DeleteLocalRef(stringClass);
    return array;
}

int64_t monotonicNs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000000000LL + now.tv_nsec;
}

}  // namespace

extern "C" {

// This library's own load hook. Without it the VM would find the bridge's JNI_OnLoad through this
// library's dependencies and run it a second time. It also publishes the device's audio signal
// processor service, which the service looks up when it starts.
JNIEXPORT jint JNI_OnLoad(JavaVM*, void*) {
    static android::sp<asp::host::AudioSignalProcessorService> processor =
            asp::host::publishService();
    return JNI_VERSION_1_4;
}

// Sends every Android log line (the service's and, through it, the engine's) to path; with echo,
// to stderr as well. DEBUG and above are kept. False when the file cannot be opened.
JNIEXPORT jboolean JNICALL Java_velmar_speech_tools_HostControl_redirectLog(JNIEnv* env, jclass,
                                                                            jstring path,
                                                                            jboolean echo) {
    FILE* file = fopen(text(env, path).c_str(), "w");
    if (file == nullptr) return JNI_FALSE;
    {
        std::lock_guard<std::mutex> guard(gLogLock);
        if (gLogFile != nullptr) fclose(gLogFile);
        gLogFile = file;
        gLogEcho = echo;
    }
    __android_log_set_logger(fileLogger);
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);
    return JNI_TRUE;
}

// The messages of the ERROR (and worse) log lines so far, oldest first.
JNIEXPORT jobjectArray JNICALL Java_velmar_speech_tools_HostControl_errors(JNIEnv* env, jclass) {
    std::vector<std::string> errors;
    {
        std::lock_guard<std::mutex> guard(gLogLock);
        errors = gErrors;
    }
    return strings(env, errors);
}

// Puts 16 kHz mono 16-bit PCM from path ("-": standard input), a WAV stream or raw, on the
// microphone source, to be played in real time by the recording the service opens. Returns
// {why it cannot (or null), what the input is, a warning about raw input (or null)}.
JNIEXPORT jobjectArray JNICALL Java_velmar_speech_tools_HostControl_attachMicrophone(
        JNIEnv* env, jclass, jstring path, jboolean timeDeliveries) {
    std::string name = text(env, path);
    std::string label = name == "-" ? "standard input" : name;
    int fd = name == "-" ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC);
    velmar::tools::LiveInput input;
    if (fd < 0) {
        input.error = "cannot read " + name + ": " + strerror(errno);
    } else {
        input = velmar::tools::readLiveInput(fd, label);
    }
    if (input.error.empty()) {
        gMicrophone = new android::host::FdPcm(fd, /*ownFd=*/fd != STDIN_FILENO, 32000,
                                               std::move(input.samples));
        if (timeDeliveries) gMicrophone->recordDeliveryTimes();
        android::host::attachSource(kMicrophone, gMicrophone);
    } else if (fd > STDIN_FILENO) {
        close(fd);
    }
    return strings(env, {input.error, input.format, input.warning});
}

// Captures from an ALSA device on the microphone source whenever the service records. Returns
// null, or why the device cannot capture 16 kHz mono 16-bit.
JNIEXPORT jstring JNICALL Java_velmar_speech_tools_HostControl_attachAlsaMicrophone(
        JNIEnv* env, jclass, jstring device) {
    std::string name = text(env, device);
    std::string problem = android::host::AlsaPcm::probe(name);
    if (!problem.empty()) return env->NewStringUTF(problem.c_str());
    gAlsa = new android::host::AlsaPcm(name);
    android::host::attachSource(kMicrophone, gAlsa);
    return nullptr;
}

// What happened to the ALSA device since the last call (see AlsaPcm::events()).
JNIEXPORT jobjectArray JNICALL Java_velmar_speech_tools_HostControl_microphoneEvents(JNIEnv* env,
                                                                                     jclass) {
    return strings(env, gAlsa == nullptr ? std::vector<std::string>() : gAlsa->events());
}

JNIEXPORT jboolean JNICALL Java_velmar_speech_tools_HostControl_microphoneFinished(JNIEnv*,
                                                                                   jclass) {
    return gMicrophone != nullptr && gMicrophone->finished();
}

JNIEXPORT jlong JNICALL Java_velmar_speech_tools_HostControl_microphoneFramesDelivered(JNIEnv*,
                                                                                       jclass) {
    return gMicrophone == nullptr ? 0 : static_cast<jlong>(gMicrophone->framesDelivered());
}

// CLOCK_MONOTONIC time (System.nanoTime() on Linux) at which the microphone delivered this frame.
JNIEXPORT jlong JNICALL Java_velmar_speech_tools_HostControl_deliveryTimeNanos(JNIEnv*, jclass,
                                                                               jlong frame) {
    if (gMicrophone == nullptr || frame < 0) return -1;
    return gMicrophone->deliveryTime(static_cast<uint64_t>(frame));
}

// From a native thread of its own (not attached to the VM, like an engine thread), hands count
// wake-word results to the bridge's callback one after the other, pauseMicros apart. Result i
// carries detailValue i and a blob of blobSize bytes. Returns, for each, the CLOCK_MONOTONIC
// time taken just before the call.
JNIEXPORT jlongArray JNICALL Java_velmar_speech_tools_HostControl_fireBridgeResults(
        JNIEnv* env, jclass, jint count, jint blobSize, jint pauseMicros) {
    std::vector<int64_t> started(static_cast<size_t>(count));
    std::thread engine([&] {
        std::vector<uint8_t> blob(static_cast<size_t>(blobSize), '7');
        for (jint i = 0; i < count; ++i) {
            NorvoEnumeratedResult result{};
            result.beginSampleIndex = 16000;
            result.endSampleIndex = 32000;
            result.keyword = "PURPLE_ELEPHANT";
            result.detailText = "purple elephant";
            result.detailValue = i;
            result.blob.size = static_cast<uint32_t>(blob.size());
            result.blob.data = blob.data();
            started[static_cast<size_t>(i)] = monotonicNs();
            norvoEnumerationEventCallback_JNI("WakeWordService_input_decoder", &result);
            if (pauseMicros > 0) usleep(static_cast<useconds_t>(pauseMicros));
        }
    });
    engine.join();
    jlongArray times = env->NewLongArray(count);
    if (times != nullptr) {
        env->SetLongArrayRegion(times, 0, count, reinterpret_cast<const jlong*>(started.data()));
    }
    return times;
}

}  // extern "C"
