// Natives of the Java tests' helper classes: velmar.speech.test.FakeNorvo drives the fake engine
// (scripts, recorded calls, results fired on its decoder threads) and velmar.speech.test.NativeLog
// captures the Android log. Test code only; never part of the service.
#include <dlfcn.h>
#include <malloc.h>
#include <jni.h>
#include <media/AudioRecord.h>
#include <media/HostAudio.h>
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

// The strings of a String[] (null elements become ""), each element's local reference released.
std::vector<std::string> stringsOf(JNIEnv* env, jobjectArray array) {
    std::vector<std::string> copies;
    for (jsize i = 0; array != nullptr && i < env->GetArrayLength(array); ++i) {
        auto element = static_cast<jstring>(env->GetObjectArrayElement(array, i));
        copies.push_back(text(env, element));
        if (element != nullptr) env->DeleteLocalRef(element);
    }
    return copies;
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

// Runs fn on the decoder's own thread (the input decoder's unless named) and waits for it.
bool onDecoderThread(const std::string& decoder, std::function<void()> fn) {
    return norvo_fake::runOnDecoderThread(decoder.empty() ? kInputDecoder : decoder, std::move(fn));
}

std::unique_ptr<wws_test::LogCapture> gLog;

// The pushed sources attached to the host audio system, by input source.
std::mutex gSourcesLock;
std::map<int, android::sp<android::host::PushedPcm>> gSources;  // guarded by gSourcesLock

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

// ---- HostAudio -----------------------------------------------------------------------------

JNIEXPORT void JNICALL Java_velmar_speech_test_HostAudio_reset(JNIEnv*, jclass) {
    std::lock_guard<std::mutex> guard(gSourcesLock);
    gSources.clear();
    android::host::reset();
}

JNIEXPORT void JNICALL Java_velmar_speech_test_HostAudio_push(JNIEnv* env, jclass, jint source,
                                                              jshortArray samples) {
    std::vector<int16_t> copy(static_cast<size_t>(env->GetArrayLength(samples)));
    env->GetShortArrayRegion(samples, 0, static_cast<jsize>(copy.size()), copy.data());
    std::lock_guard<std::mutex> guard(gSourcesLock);
    android::sp<android::host::PushedPcm>& pcm = gSources[source];
    if (pcm == nullptr) {
        pcm = new android::host::PushedPcm();
        android::host::attachSource(static_cast<audio_source_t>(source), pcm);
    }
    pcm->push(std::move(copy));
}

// ---- FakeNorvo: scripts and records ------------------------------------------------------------

// Every sample pushed to the decoder so far.
JNIEXPORT jshortArray JNICALL Java_velmar_speech_test_FakeNorvo_pushedSamples(JNIEnv* env, jclass,
                                                                            jstring decoderId) {
    std::vector<int16_t> samples = norvo_fake::pushedSamples(text(env, decoderId));
    jshortArray array = env->NewShortArray(static_cast<jsize>(samples.size()));
    if (array != nullptr) {
        env->SetShortArrayRegion(array, 0, static_cast<jsize>(samples.size()), samples.data());
    }
    return array;
}


JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_reset(JNIEnv*, jclass) {
    norvo_fake::reset();
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_setStatus(JNIEnv* env, jclass, jstring op,
                                                                  jstring id, jint status) {
    if (id == nullptr) {
        norvo_fake::setStatus(text(env, op), status);
    } else {
        norvo_fake::setStatus(text(env, op), text(env, id), status);
    }
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_setModelSetAttributes(JNIEnv* env, jclass,
                                                                              jstring id,
                                                                              jstring json) {
    norvo_fake::setModelSetAttributes(text(env, id), text(env, json));
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_scriptKeyword(JNIEnv* env, jclass,
                                                                      jstring decoderId,
                                                                      jshort trigger,
                                                                      jstring keyword,
                                                                      jbyteArray blob) {
    norvo_fake::scriptKeyword(text(env, decoderId), trigger, text(env, keyword), bytes(env, blob));
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

// ---- FakeNorvo: results fired on the engine's threads ---------------------------------------

JNIEXPORT jboolean JNICALL Java_velmar_speech_test_FakeNorvo_fireEnumerated(
        JNIEnv* env, jclass, jboolean localCommand, jstring reportedDecoderId, jstring keyword,
        jstring detail, jlong begin, jlong end, jint detailValue, jint detectionType,
        jbyteArray blob, jlong tail) {
    std::string id = text(env, reportedDecoderId);
    std::string word = text(env, keyword);
    std::string detailText = text(env, detail);
    std::vector<uint8_t> data = bytes(env, blob);
    norvo_fake::Callbacks callbacks = norvo_fake::callbacks();
    EnumeratedResult_Callback callback =
            localCommand ? callbacks.localCommand : callbacks.enumeratedResult;
    if (callback == nullptr) return JNI_FALSE;
    return onDecoderThread("", [&] {
        NorvoEnumeratedResult result{};
        result.beginSampleIndex = begin;
        result.endSampleIndex = end;
        result.keyword = word.c_str();
        result.detailText = detailText.c_str();
        result.detailValue = detailValue;
        result.detectionType = detectionType;
        result.blob.size = static_cast<uint32_t>(data.size());
        result.blob.data = data.data();
        result.tailValue = tail;
        callback(id.c_str(), &result);
    });
}

JNIEXPORT jboolean JNICALL Java_velmar_speech_test_FakeNorvo_firePresence(
        JNIEnv* env, jclass, jstring decoderId, jstring eventName, jlong begin, jlong end,
        jint detectionType, jboolean flag) {
    AcousticEventDetectionResult_Callback callback = norvo_fake::callbacks().acousticEvent;
    if (callback == nullptr) return JNI_FALSE;
    std::string id = text(env, decoderId);
    std::string name = text(env, eventName);
    return onDecoderThread("", [&] {
        NorvoAcousticEventDetectionResult result{};
        result.beginSampleIndex = begin;
        result.endSampleIndex = end;
        result.detectionType = detectionType;
        result.eventName = name.c_str();
        result.eventFlag = flag ? 1 : 0;
        callback(id.c_str(), &result);
    });
}

JNIEXPORT jboolean JNICALL Java_velmar_speech_test_FakeNorvo_fireNtt(
        JNIEnv* env, jclass, jstring decoderId, jlong begin, jint eventType, jbyteArray blob,
        jlong detectionIndex, jint activeMode) {
    NttResult_Callback callback = norvo_fake::callbacks().nttResult;
    if (callback == nullptr) return JNI_FALSE;
    std::string id = text(env, decoderId);
    std::vector<uint8_t> data = bytes(env, blob);
    return onDecoderThread("", [&] {
        NorvoNttResult result{};
        result.beginSampleIndex = begin;
        result.eventType = eventType;
        result.blob.size = static_cast<uint32_t>(data.size());
        result.blob.data = data.empty() ? nullptr : data.data();
        result.detectionSampleIndex = detectionIndex;
        result.activeMode = activeMode;
        callback(id.c_str(), &result);
    });
}

JNIEXPORT jboolean JNICALL Java_velmar_speech_test_FakeNorvo_fireEndOfSpeech(JNIEnv*, jclass,
                                                                            jlong value) {
    NttEndOfSpeech_Callback callback = norvo_fake::callbacks().nttEndOfSpeech;
    if (callback == nullptr) return JNI_FALSE;
    return onDecoderThread("", [&] {
        NorvoNttEndOfSpeech result{};
        result.endOfSpeechValue = value;
        callback("wws_ntt", &result);
    });
}

JNIEXPORT jboolean JNICALL Java_velmar_speech_test_FakeNorvo_fireJsondata(
        JNIEnv* env, jclass, jstring t1, jstring t2, jstring t3, jstring t4, jint a, jint b) {
    Jsondata_Callback callback = norvo_fake::callbacks().jsondata;
    if (callback == nullptr) return JNI_FALSE;
    std::string s1 = text(env, t1), s2 = text(env, t2), s3 = text(env, t3), s4 = text(env, t4);
    return onDecoderThread("", [&] {
        callback(s1.c_str(), s2.c_str(), s3.c_str(), s4.c_str(), a, b);
    });
}

// texts: four strings (program/group, source/schema, name, value); metadata: name, value, ...
JNIEXPORT jboolean JNICALL Java_velmar_speech_test_FakeNorvo_fireMetrics(
        JNIEnv* env, jclass, jboolean quillan, jobjectArray texts, jint type, jobjectArray metadata) {
    std::vector<std::string> t = stringsOf(env, texts);
    std::vector<std::string> m = stringsOf(env, metadata);
    std::vector<NorvoDMSMetricMetadataEntry> entries;
    for (size_t i = 0; i + 1 < m.size(); i += 2) entries.push_back({m[i].c_str(), m[i + 1].c_str()});
    norvo_fake::Callbacks callbacks = norvo_fake::callbacks();
    if (quillan) {
        if (callbacks.dmsQuillanMetrics == nullptr) return JNI_FALSE;
        return onDecoderThread("", [&] {
            NorvoDMSQuillanMetricData record{};
            record.groupID = t[0].c_str();
            record.schemaID = t[1].c_str();
            record.dataPointName = t[2].c_str();
            record.dataPointValue = t[3].c_str();
            record.dataPointType = type;
            record.metadata = entries.data();
            record.metadataCount = static_cast<int32_t>(entries.size());
            callbacks.dmsQuillanMetrics(&record);
        });
    }
    if (callbacks.dmsMetrics == nullptr) return JNI_FALSE;
    return onDecoderThread("", [&] {
        NorvoDMSMetricData record{};
        record.programName = t[0].c_str();
        record.sourceName = t[1].c_str();
        record.dataPointName = t[2].c_str();
        record.dataPointValue = t[3].c_str();
        record.dataPointType = type;
        record.metadata = entries.data();
        record.metadataCount = static_cast<int32_t>(entries.size());
        callbacks.dmsMetrics(&record);
    });
}

// A null modelId or a negative eventType of -100 (meaning "no event record") reach the callback
// as null pointers.
JNIEXPORT jboolean JNICALL Java_velmar_speech_test_FakeNorvo_fireFederatedLearning(
        JNIEnv* env, jclass, jboolean unsecured, jstring modelSetId, jstring modelId,
        jint eventType, jstring json, jbyteArray data, jfloat scale, jstring applicationId) {
    norvo_fake::Callbacks callbacks = norvo_fake::callbacks();
    std::string setId = text(env, modelSetId);
    std::string id = text(env, modelId);
    const bool nullId = modelId == nullptr;
    std::string metadata = text(env, json);
    std::string application = text(env, applicationId);
    std::vector<uint8_t> payload = bytes(env, data);
    NorvoFederatedLearningEvent event{eventType, metadata.c_str(),
                                      static_cast<int32_t>(payload.size()), payload.data()};
    NorvoFederatedLearningEvent* eventPointer = eventType == -100 ? nullptr : &event;
    if (unsecured) {
        if (callbacks.federatedLearningUnsecured == nullptr) return JNI_FALSE;
        return onDecoderThread("", [&] {
            NorvoFederatedLearningUnsecuredEvent record{eventPointer, scale, application.c_str()};
            callbacks.federatedLearningUnsecured(setId.c_str(), nullId ? nullptr : id.c_str(),
                                                 &record);
        });
    }
    if (callbacks.federatedLearning == nullptr) return JNI_FALSE;
    return onDecoderThread("", [&] {
        callbacks.federatedLearning(setId.c_str(), nullId ? nullptr : id.c_str(), eventPointer);
    });
}

// Returns the idle time the engine's record holds after the callback.
JNIEXPORT jlong JNICALL Java_velmar_speech_test_FakeNorvo_fireIdleDetection(
        JNIEnv* env, jclass, jstring modelSetId, jstring modelId, jlong seconds) {
    NorvoFederatedLearning_idleDetectionCallback callback =
            norvo_fake::callbacks().federatedLearningIdle;
    if (callback == nullptr) return -1;
    std::string setId = text(env, modelSetId);
    std::string id = text(env, modelId);
    NorvoFederatedLearningIdleDetectionResult result{seconds};
    onDecoderThread("", [&] { callback(setId.c_str(), id.c_str(), &result); });
    return result.timeSinceLastIdleSec;
}

// threads native threads, each firing perThread wake-word results at once; result k of thread t
// carries a blob of blobSize bytes all equal to (t * perThread + k) & 0xff and detailValue
// t * perThread + k.
JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_fireConcurrently(JNIEnv*, jclass,
                                                                         jint threads,
                                                                         jint perThread,
                                                                         jint blobSize) {
    EnumeratedResult_Callback callback = norvo_fake::callbacks().enumeratedResult;
    if (callback == nullptr) return;
    std::vector<std::thread> engineThreads;
    for (int t = 0; t < threads; ++t) {
        engineThreads.emplace_back([=] {
            for (int k = 0; k < perThread; ++k) {
                int tag = t * perThread + k;
                std::vector<uint8_t> blob(static_cast<size_t>(blobSize),
                                          static_cast<uint8_t>(tag & 0xff));
                NorvoEnumeratedResult result{};
                result.keyword = "HEYVELMAR";
                result.detailText = "";
                result.detailValue = tag;
                result.blob.size = static_cast<uint32_t>(blob.size());
                result.blob.data = blob.data();
                callback(kInputDecoder, &result);
            }
        });
    }
    for (std::thread& thread : engineThreads) thread.join();
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_fireDecoderStatus(JNIEnv* env, jclass,
                                                                          jstring which,
                                                                          jboolean started) {
    std::string name = text(env, which);
    if (name == "aedStatic") aedStaticDecoderStatusCallback_JNI(started);
    if (name == "aedCustom") aedCustomDecoderStatusCallback_JNI(started);
    if (name == "ntt") nttDecoderStatusCallback_JNI(started);
    if (name == "pma") pmaDecoderStatusCallback_JNI(started);
}

// Calls one of the bridge's engine-facing callbacks (named as the Java recorder names its event)
// with a plain record: on the calling Java thread, or on a new native thread, as an engine would.
// Returns -1 for an unknown name, 1 when a native thread was left attached to the VM, else 0.
JNIEXPORT jint JNICALL Java_velmar_speech_test_FakeNorvo_callBridgeDirectly(JNIEnv* env, jclass,
                                                                           jstring kind,
                                                                           jboolean onNativeThread) {
    const std::string name = text(env, kind);
    auto call = [&name]() -> bool {
        static const NorvoDMSMetricMetadataEntry entry{"k", "v"};
        static const uint8_t payload[2] = {1, 2};
        NorvoEnumeratedResult enumerated{};
        enumerated.beginSampleIndex = 10;
        enumerated.endSampleIndex = 20;
        enumerated.keyword = "K";
        enumerated.detailText = "";
        NorvoAcousticEventDetectionResult presence{10, 20, 0, "Event", 1};
        NorvoNttResult ntt{};
        ntt.beginSampleIndex = 10;
        ntt.detectionSampleIndex = 20;
        NorvoNttEndOfSpeech endOfSpeech{0, 5};
        NorvoDMSMetricData metrics{"p", "s", "n", "v", 0, {0, 0}, &entry, 1};
        NorvoDMSQuillanMetricData quillan{"g", "s", "n", "v", 1, 0, &entry, 1};
        NorvoFederatedLearningEvent event{0, "{}", 2, payload};
        NorvoFederatedLearningUnsecuredEvent unsecured{&event, 0.5f, "app"};
        NorvoFederatedLearningIdleDetectionResult idle{7};
        if (name == "enumerated") norvoEnumerationEventCallback_JNI(kInputDecoder, &enumerated);
        else if (name == "localCommand") norvoLocalCommandCallback_JNI(kInputDecoder, &enumerated);
        else if (name == "presence") norvoPresenceDetectionCallback_JNI("aed", &presence);
        else if (name == "ntt") norvoNttResultCallback_JNI("wws_ntt", &ntt);
        else if (name == "endOfSpeech") norvoNttEndOfSpeechResultCallback_JNI("wws_ntt", &endOfSpeech);
        else if (name == "json") norvoSetJsondataCallback_JNI("a", "b", "c", "d", 1, 2);
        else if (name == "metrics") recordMetricsCallback_JNI(&metrics);
        else if (name == "quillanMetrics") recordQuillanMetricsCallback_JNI(&quillan);
        else if (name == "flEvent") handleFederatedLearningEventCallback_JNI("set", "m", &event);
        else if (name == "flUnsecured")
            handleFederatedLearningUnsecuredEventCallback_JNI("set", "m", &unsecured);
        else if (name == "flIdle") handleFederatedLearningIdleDetectionResultCallback_JNI("set", "m", &idle);
        else if (name == "aedStatic") aedStaticDecoderStatusCallback_JNI(true);
        else if (name == "aedCustom") aedCustomDecoderStatusCallback_JNI(true);
        else if (name == "nttDecoder") nttDecoderStatusCallback_JNI(true);
        else if (name == "pmaDecoder") pmaDecoderStatusCallback_JNI(true);
        else return false;
        return true;
    };
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    if (!onNativeThread) {
        // This thread stays attached: whatever the callback did not release is still held here.
        const int before = wws_test::liveLocalReferences(vm);
        if (!call()) return -1;
        const int after = wws_test::liveLocalReferences(vm);
        return before < 0 || after < 0 ? -2 : after - before;
    }
    jint result = 0;
    std::thread([&] {
        if (!call()) {
            result = -1;
            return;
        }
        JNIEnv* after = nullptr;
        result = vm->GetEnv(reinterpret_cast<void**>(&after), JNI_VERSION_1_4) == JNI_EDETACHED
                         ? 0
                         : 1;
    }).join();
    return result;
}

JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_setAudioPushesCountedOnly(JNIEnv*, jclass,
                                                                                  jboolean counted) {
    norvo_fake::setAudioPushesCountedOnly(counted);
}

// {events, samples, discontinuities} pushed to the decoder while pushes were only counted.
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

// Makes a JNI call while an exception is pending, a misuse every -Xcheck:jni build reports, then
// clears the exception so that the Java caller sees nothing wrong.
JNIEXPORT void JNICALL Java_velmar_speech_test_FakeNorvo_callWithExceptionPending(JNIEnv* env,
                                                                                 jclass) {
    jclass type = env->FindClass("java/lang/IllegalStateException");
    env->ThrowNew(type, "left pending on purpose");
    jstring misuse = env->NewStringUTF("made with an exception pending");
    env->ExceptionClear();
    env->DeleteLocalRef(misuse);
    env->DeleteLocalRef(type);
}

// Creates count local references and keeps them: the local-reference counter must see them.
JNIEXPORT jint JNICALL Java_velmar_speech_test_FakeNorvo_localReferencesLeftBy(JNIEnv* env, jclass,
                                                                              jint count) {
    JavaVM* vm = nullptr;
    env->GetJavaVM(&vm);
    const int before = wws_test::liveLocalReferences(vm);
    for (jint i = 0; i < count; ++i) env->NewStringUTF("kept");
    return wws_test::liveLocalReferences(vm) - before;
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

// The service's constructor arguments as they landed, "name=value" joined with ';'.
JNIEXPORT jstring JNICALL Java_velmar_speech_test_FakeNorvo_describeService(JNIEnv* env, jclass,
                                                                           jlong address) {
    auto* s = reinterpret_cast<velmar::WakeWordService*>(static_cast<uintptr_t>(address));
    if (s == nullptr) return env->NewStringUTF("");
    std::string d;
    auto add = [&d](const std::string& name, const std::string& value) {
        d += name + "=" + value + ";";
    };
    add("package", android::String8(s->mPackageName).c_str());
    add("oneMic", std::to_string(s->mOneMicEnabled));
    add("oneMicStream", s->mOneMicAudioStream == nullptr ? "null" : "set");
    add("aedStatic", s->mAedStaticModelManifestPath);
    add("ntt", s->mNttModelPath);
    add("pma", s->mPmaModelPath);
    add("aedCustom", s->mAedCustomModelPath);
    add("wakeWordCount", std::to_string(s->mWakeWordCount));
    add("flags", std::to_string(s->mPlaybackViaAudioRecord) + std::to_string(s->mSuppressPlaybackAtInit) +
                         std::to_string(s->mAedAvailable) + std::to_string(s->mNearMissEnabled) +
                         std::to_string(s->mThreeChannelInput) + std::to_string(s->mNttEnabled) +
                         std::to_string(s->mPreloadNttModel));
    add("ints", std::to_string(s->mDecoderThreadPriority) + "," +
                        std::to_string(s->mAudioRecordFrameCount) + "," +
                        std::to_string(s->mLocalTimeOffset) + "," + std::to_string(s->mTtsStreamType));
    add("initStatus", std::to_string(s->mInitStatus));
    return env->NewStringUTF(d.c_str());
}

}  // extern "C"
