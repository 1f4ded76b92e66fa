// Natives of the Java tests' helper classes: velmar.speech.test.FakeNorvo drives the fake engine
// (scripts, recorded calls, engine records delivered to the bridge) and velmar.speech.test.NativeLog
// captures the Android log. Test code only; never part of the service.
#include <dlfcn.h>
#include <jni.h>
#include <malloc.h>
#include <media/AudioRecord.h>
#include <norvo_fake/FakeNorvo.h>

#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "LocalReferences.h"
#include "LogCapture.h"
#include "ServiceFactory.h"
#include "WakeWordService.h"
#include "WakeWordServiceJni.h"  // the bridge's entry points, called directly

namespace {

constexpr const char* kInputDecoder = "WakeWordService_input_decoder";

std::string text(JNIEnv* env, jstring string) {
    if (string == nullptr) return std::string();
    const char* chars = env->GetStringUTFChars(string, nullptr);
    std::string copy = chars == nullptr ? std::string() : chars;
    if (chars != nullptr) env->ReleaseStringUTFChars(string, chars);
    return copy;
}

std::vector<uint8_t> bytes(JNIEnv* env, jbyteArray array) {
    std::vector<uint8_t> copy;
    if (array == nullptr) return copy;
    copy.resize(static_cast<size_t>(env->GetArrayLength(array)));
    env->GetByteArrayRegion(array, 0, static_cast<jsize>(copy.size()),
                            reinterpret_cast<jbyte*>(copy.data()));
    return copy;
}

jobjectArray stringArray(JNIEnv* env, const std::vector<std::string>& strings) {
    jclass stringClass = env->FindClass("java/lang/String");
    jobjectArray array = env->NewObjectArray(static_cast<jsize>(strings.size()), stringClass, nullptr);
    for (size_t i = 0; i < strings.size(); ++i) {
        jstring element = env->NewStringUTF(strings[i].c_str());
        env->SetObjectArrayElement(array, static_cast<jsize>(i), element);
        env->DeleteLocalRef(element);
    }
    env->DeleteLocalRef(stringClass);
    return array;
}

std::unique_ptr<wws_test::LogCapture> gLog;

// One engine record as a Java test describes it: texts (null elements kept as null), numbers and
// a blob, their meaning given by the kind (see FakeNorvo.java).
struct Record {
    std::vector<std::string> texts;
    std::vector<bool> isNull;
    std::vector<double> numbers;
    std::vector<uint8_t> blob;
    const char* text(size_t i) const {
        return i < texts.size() && !isNull[i] ? texts[i].c_str() : nullptr;
    }
    double number(size_t i) const { return i < numbers.size() ? numbers[i] : 0; }
    int32_t integer(size_t i) const { return static_cast<int32_t>(number(i)); }
};

constexpr int64_t kNoCallback = INT64_MIN;

// Calls the callback for kind with a record built from r: the one the service registered with the
// fake engine (throughEngine) or the bridge's own function. *result stays kNoCallback when there
// is none; otherwise it is 0, or the idle time the record holds after an idle-detection callback.
void deliver(const std::string& kind, const Record& r, bool throughEngine, int64_t* result) {
    const norvo_fake::Callbacks c = norvo_fake::callbacks();
    auto pick = [throughEngine](auto engine, auto bridge) { return throughEngine ? engine : bridge; };
    // An empty blob still points somewhere: only its size says that there is nothing.
    static const uint8_t kNothing = 0;
    NorvoDataBlob blob{static_cast<uint32_t>(r.blob.size()),
                       r.blob.empty() ? &kNothing : r.blob.data()};
    auto run = [result](auto fn, auto... args) {
        if (fn == nullptr) return;
        fn(args...);
        *result = 0;
    };
    if (kind == "enumerated" || kind == "localCommand") {
        // texts: decoder, keyword, detail; numbers: begin, end, detailValue, detectionType, tail
        NorvoEnumeratedResult e{};
        e.beginSampleIndex = static_cast<int64_t>(r.number(0));
        e.endSampleIndex = static_cast<int64_t>(r.number(1));
        e.keyword = r.text(1);
        e.detailText = r.text(2);
        e.detailValue = r.integer(2);
        e.detectionType = r.integer(3);
        e.blob = blob;
        e.tailValue = static_cast<int64_t>(r.number(4));
        run(kind == "enumerated" ? pick(c.enumeratedResult, &norvoEnumerationEventCallback_JNI)
                                 : pick(c.localCommand, &norvoLocalCommandCallback_JNI),
            r.text(0), &e);
    } else if (kind == "presence") {
        // texts: decoder, event name; numbers: begin, end, detectionType, flag
        NorvoAcousticEventDetectionResult p{static_cast<int64_t>(r.number(0)),
                                            static_cast<int64_t>(r.number(1)), r.integer(2),
                                            r.text(1), static_cast<uint8_t>(r.integer(3))};
        run(pick(c.acousticEvent, &norvoPresenceDetectionCallback_JNI), r.text(0), &p);
    } else if (kind == "ntt") {
        // texts: decoder; numbers: begin, eventType, detection index, activeMode
        NorvoNttResult n{};
        n.beginSampleIndex = static_cast<int64_t>(r.number(0));
        n.eventType = r.integer(1);
        n.blob = blob;
        n.detectionSampleIndex = static_cast<int64_t>(r.number(2));
        n.activeMode = r.integer(3);
        run(pick(c.nttResult, &norvoNttResultCallback_JNI), r.text(0), &n);
    } else if (kind == "endOfSpeech") {
        NorvoNttEndOfSpeech end{};
        end.endOfSpeechValue = static_cast<int64_t>(r.number(0));
        run(pick(c.nttEndOfSpeech, &norvoNttEndOfSpeechResultCallback_JNI), "wws_ntt", &end);
    } else if (kind == "json") {
        run(pick(c.jsondata, &norvoSetJsondataCallback_JNI), r.text(0), r.text(1), r.text(2),
            r.text(3), r.integer(0), r.integer(1));
    } else if (kind == "metrics" || kind == "quillanMetrics") {
        // texts: program/group, source/schema, name, value, then metadata name, value, ...;
        // numbers: type
        std::vector<NorvoDMSMetricMetadataEntry> entries;
        for (size_t i = 4; i + 1 < r.texts.size(); i += 2) entries.push_back({r.text(i), r.text(i + 1)});
        const int32_t count = static_cast<int32_t>(entries.size());
        if (kind == "metrics") {
            NorvoDMSMetricData m{r.text(0), r.text(1), r.text(2), r.text(3), r.integer(0), {0, 0},
                                 entries.data(), count};
            run(pick(c.dmsMetrics, &recordMetricsCallback_JNI), &m);
        } else {
            NorvoDMSQuillanMetricData q{r.text(0), r.text(1), r.text(2), r.text(3), r.integer(0),
                                        0, entries.data(), count};
            run(pick(c.dmsQuillanMetrics, &recordQuillanMetricsCallback_JNI), &q);
        }
    } else if (kind == "flEvent" || kind == "flUnsecured") {
        // texts: model set, model (may be null), json, application; numbers: eventType (-100: no
        // event record at all), scale
        NorvoFederatedLearningEvent event{r.integer(0), r.text(2),
                                          static_cast<int32_t>(r.blob.size()), r.blob.data()};
        NorvoFederatedLearningEvent* pointer = r.integer(0) == -100 ? nullptr : &event;
        NorvoFederatedLearningUnsecuredEvent unsecured{pointer, static_cast<float>(r.number(1)),
                                                       r.text(3)};
        if (kind == "flEvent") {
            run(pick(c.federatedLearning, &handleFederatedLearningEventCallback_JNI), r.text(0),
                r.text(1), pointer);
        } else {
            run(pick(c.federatedLearningUnsecured, &handleFederatedLearningUnsecuredEventCallback_JNI),
                r.text(0), r.text(1), &unsecured);
        }
    } else if (kind == "flIdle") {
        NorvoFederatedLearningIdleDetectionResult idle{static_cast<int64_t>(r.number(0))};
        run(pick(c.federatedLearningIdle, &handleFederatedLearningIdleDetectionResultCallback_JNI),
            r.text(0), r.text(1), &idle);
        if (*result == 0) *result = idle.timeSinceLastIdleSec;
    } else {
        // The decoder-status callbacks: the service calls them itself. numbers: started
        const std::map<std::string, void (*)(bool)> statuses = {
                {"aedStatic", aedStaticDecoderStatusCallback_JNI},
                {"aedCustom", aedCustomDecoderStatusCallback_JNI},
                {"nttDecoder", nttDecoderStatusCallback_JNI},
                {"pmaDecoder", pmaDecoderStatusCallback_JNI}};
        auto found = statuses.find(kind);
        if (found != statuses.end()) run(found->second, r.number(0) != 0);
    }
}

}  // namespace

extern "C" {

// This library's own load hook. Without it the VM would find the bridge's JNI_OnLoad through this
// library's dependencies and run it when the test helpers load. It also publishes the device's
// audio signal processor service, which every service created in the tests looks for.
JNIEXPORT jint JNI_OnLoad(JavaVM*, void*) {
    wws_test::signalProcessor();
    return JNI_VERSION_1_4;
}

// ---- NativeLog -------------------------------------------------------------------------------

JNIEXPORT void JNICALL Java_velmar_speech_test_NativeLog_start(JNIEnv*, jclass) {
    gLog.reset();
    gLog = std::make_unique<wws_test::LogCapture>();
}

JNIEXPORT void JNICALL Java_velmar_speech_test_NativeLog_stop(JNIEnv*, jclass) { gLog.reset(); }

// Lines are still formatted but kept nowhere: long runs neither grow the capture nor flood stderr.
JNIEXPORT void JNICALL Java_velmar_speech_test_NativeLog_discard(JNIEnv*, jclass) {
    gLog.reset();
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

// Each line as "<priority> <tag>: <message>".
JNIEXPORT jobjectArray JNICALL Java_velmar_speech_test_NativeLog_lines(JNIEnv* env, jclass) {
    std::vector<std::string> lines;
    if (gLog != nullptr) {
        for (const wws_test::LogLine& line : gLog->lines()) {
            lines.push_back(std::to_string(line.priority) + " " + line.tag + ": " + line.message);
        }
    }
    return stringArray(env, lines);
}

// ---- FakeNorvo: scripts and records ------------------------------------------------------------

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_reset(JNIEnv*, jclass) {
    norvo_fake::reset();
}

// Every later call of op returns status.
JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_setStatus(JNIEnv* env, jclass, jstring op,
                                                                  jint status) {
    norvo_fake::setStatus(text(env, op), status);
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_setModelSetAttributes(JNIEnv* env, jclass,
                                                                              jstring id,
                                                                              jstring json) {
    norvo_fake::setModelSetAttributes(text(env, id), text(env, json));
}

// Every recorded call of op, each as its arguments joined with '|'.
JNIEXPORT jobjectArray JNICALL Java_velmar_speech_test_FakeNorvo_calls(JNIEnv* env, jclass,
                                                                      jstring op) {
    std::vector<std::string> joined;
    for (const norvo_fake::Call& call : norvo_fake::callsOf(text(env, op))) {
        std::string line;
        for (size_t i = 0; i < call.args.size(); ++i) line += (i == 0 ? "" : "|") + call.args[i];
        joined.push_back(line);
    }
    return stringArray(env, joined);
}

// ---- FakeNorvo: engine records delivered to the bridge ----------------------------------------

// thread: 0 the input decoder's (through the callback the service registered with the engine), 1
// this Java thread, 2 a new native thread (both straight to the bridge's function). See
// FakeNorvo.java for the record and the result.
JNIEXPORT jlong JNICALL Java_velmar_speech_test_FakeNorvo_fire(JNIEnv* env, jclass, jstring kind,
                                                               jobjectArray texts,
                                                               jdoubleArray numbers,
                                                               jbyteArray blob, jint thread) {
    Record record;
    for (jsize i = 0; texts != nullptr && i < env->GetArrayLength(texts); ++i) {
        auto element = static_cast<jstring>(env->GetObjectArrayElement(texts, i));
        record.isNull.push_back(element == nullptr);
        record.texts.push_back(text(env, element));
        if (element != nullptr) env->DeleteLocalRef(element);
    }
    if (numbers != nullptr) {
        record.numbers.resize(static_cast<size_t>(env->GetArrayLength(numbers)));
        env->GetDoubleArrayRegion(numbers, 0, static_cast<jsize>(record.numbers.size()),
                                  record.numbers.data());
    }
    record.blob = bytes(env, blob);
    const std::string name = text(env, kind);
    int64_t result = kNoCallback;
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    if (thread == 0) {
        norvo_fake::runOnDecoderThread(kInputDecoder, [&] { deliver(name, record, true, &result); });
    } else if (thread == 1) {
        // This thread stays attached: whatever the callback did not release is still held here.
        const int before = wws_test::liveLocalReferences(vm);
        deliver(name, record, false, &result);
        const int after = wws_test::liveLocalReferences(vm);
        if (result != kNoCallback) result = before < 0 || after < 0 ? -2 : after - before;
    } else {
        std::thread([&] {
            deliver(name, record, false, &result);
            JNIEnv* attached = nullptr;
            const bool detached =
                    vm->GetEnv(reinterpret_cast<void**>(&attached), JNI_VERSION_1_4) == JNI_EDETACHED;
            if (result != kNoCallback) result = detached ? 0 : 1;
        }).join();
    }
    return result;
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_setAudioPushesCountedOnly(JNIEnv*, jclass,
                                                                                  jboolean counted) {
    norvo_fake::setAudioPushesCountedOnly(counted);
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_forgetCalls(JNIEnv*, jclass) {
    norvo_fake::forgetCalls();
}

// Bytes the process holds from malloc: what native code (the service, the bridge) keeps, unlike
// resident memory, which the JVM's heap moves at will. 0 under ASan, which replaces malloc.
JNIEXPORT jlong JNICALL Java_velmar_speech_test_FakeNorvo_nativeHeapInUse(JNIEnv*, jclass) {
    malloc_trim(0);
    struct mallinfo2 info = mallinfo2();
    return static_cast<jlong>(info.uordblks + info.hblkhd);
}

// {events, samples, discontinuities} pushed to the decoder while pushes were only counted.
JNIEXPORT jlongArray JNICALL Java_velmar_speech_test_FakeNorvo_pushTally(JNIEnv* env, jclass,
                                                                        jstring decoderId) {
    norvo_fake::PushTally tally = norvo_fake::pushTally(text(env, decoderId));
    const jlong values[3] = {static_cast<jlong>(tally.events), static_cast<jlong>(tally.samples),
                             static_cast<jlong>(tally.discontinuities)};
    jlongArray array = env->NewLongArray(3);
    if (array != nullptr) env->SetLongArrayRegion(array, 0, 3, values);
    return array;
}

// Delivers buffers of frames frames (a ramp) to the service at address through its microphone or
// playback AudioRecord callback, on a new native thread, as fast as they go; returns when done.
JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_deliverBuffers(JNIEnv*, jclass,
                                                                       jlong address,
                                                                       jboolean playback,
                                                                       jint buffers, jint frames) {
    auto* service = reinterpret_cast<velmar::WakeWordService*>(static_cast<uintptr_t>(address));
    std::thread([=] {
        const size_t channels = playback ? 1 : velmar::gChannelCount;
        std::vector<int16_t> samples(static_cast<size_t>(frames) * channels);
        for (size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<int16_t>(i);
        android::AudioRecord::Buffer buffer;
        buffer.frameCount = static_cast<size_t>(frames);
        buffer.size = samples.size() * sizeof(int16_t);
        buffer.raw = samples.data();
        auto callback = playback ? velmar::WakeWordService::playbackAudioRecordCallbackFn
                                 : velmar::WakeWordService::audioRecordCallbackFn;
        for (jint i = 0; i < buffers; ++i) {
            callback(android::AudioRecord::EVENT_MORE_DATA, service, &buffer);
        }
    }).join();
}

// Creates count local references and keeps them, and returns how many more this thread holds
// (the local-reference counter must see them); then makes a JNI call while an exception is
// pending, a misuse every -Xcheck:jni build reports, and clears the exception so that the Java
// caller sees nothing wrong.
JNIEXPORT jint JNICALL Java_velmar_speech_test_FakeNorvo_misuseJni(JNIEnv* env, jclass, jint count) {
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    const int before = wws_test::liveLocalReferences(vm);
    for (jint i = 0; i < count; ++i) env->NewStringUTF("kept");
    const int kept = wws_test::liveLocalReferences(vm) - before;
    env->ThrowNew(env->FindClass("java/lang/IllegalStateException"), "left pending on purpose");
    env->NewStringUTF("made with an exception pending");
    env->ExceptionClear();
    return kept;
}

// Runs the bridge's JNI_OnLoad again and returns its result.
JNIEXPORT jint JNICALL Java_velmar_speech_test_FakeNorvo_callJniOnLoad(JNIEnv* env, jclass) {
    void* bridge = dlopen("libwakewordservice.so", RTLD_NOW | RTLD_NOLOAD);
    if (bridge == nullptr) return -2;
    auto onLoad = reinterpret_cast<jint (*)(JavaVM*, void*)>(dlsym(bridge, "JNI_OnLoad"));
    dlclose(bridge);
    if (onLoad == nullptr) return -3;
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    return onLoad(vm, nullptr);
}

}  // extern "C"
