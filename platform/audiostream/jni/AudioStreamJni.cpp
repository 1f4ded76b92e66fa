// Natives of velmar.speech.audio.AudioStream (host implementation of the audio stream library's
// Java binding): creating and releasing the native stream, and reading back what native writers
// put into it.
#define LOG_TAG "AudioStreamJni"

#include <audiostream/AudioStream.h>
#include <audiostream/AudioStreamJni.h>
#include <log/log.h>

#include <vector>

using android::sp;
using velmar::AudioStream;
using velmar::gAudioStreamClassInfo;
using velmar::gJniMutex;

namespace {

// The stream behind a Java object, with a strong reference for the caller (empty once closed).
sp<AudioStream> streamOf(JNIEnv* env, jobject thiz) {
    android::Mutex::Autolock lock(gJniMutex);
    return reinterpret_cast<AudioStream*>(
            static_cast<uintptr_t>(env->GetLongField(thiz, gAudioStreamClassInfo.mNativeInstance)));
}

jlong nativeCreate(JNIEnv*, jclass, jint format, jint sampleRate, jint channelCount,
                   jint capacityBytes) {
    if (capacityBytes <= 0 || channelCount <= 0) return 0;
    sp<AudioStream> stream = new AudioStream(
            velmar::AudioStreamFormat{static_cast<audio_format_t>(format),
                                      static_cast<uint32_t>(sampleRate),
                                      static_cast<uint32_t>(channelCount)},
            static_cast<size_t>(capacityBytes));
    // The Java object owns this reference until close().
    stream->incStrong(reinterpret_cast<void*>(&nativeCreate));
    // Unsigned: on 32-bit processes the upper half of the Java long stays zero.
    return static_cast<jlong>(reinterpret_cast<uintptr_t>(stream.get()));
}

void nativeRelease(JNIEnv* env, jobject thiz) {
    AudioStream* stream = nullptr;
    {
        android::Mutex::Autolock lock(gJniMutex);
        stream = reinterpret_cast<AudioStream*>(static_cast<uintptr_t>(
                env->GetLongField(thiz, gAudioStreamClassInfo.mNativeInstance)));
        env->SetLongField(thiz, gAudioStreamClassInfo.mNativeInstance, 0);
    }
    if (stream != nullptr) stream->decStrong(reinterpret_cast<void*>(&nativeCreate));
}

jint nativeWritePosition(JNIEnv* env, jobject thiz) {
    sp<AudioStream> stream = streamOf(env, thiz);
    return stream == nullptr ? 0 : static_cast<jint>(stream->writePosition());
}

jbyteArray nativeRead(JNIEnv* env, jobject thiz, jint position, jint size) {
    sp<AudioStream> stream = streamOf(env, thiz);
    if (stream == nullptr || size < 0) return env->NewByteArray(0);
    sp<velmar::AudioStreamReader> reader;
    stream->openReader(reader);
    reader->setPosition(static_cast<uint32_t>(position));
    std::vector<jbyte> bytes(static_cast<size_t>(size));
    size_t total = 0;
    while (total < bytes.size()) {
        ssize_t n = reader->read(bytes.data() + total, bytes.size() - total);
        if (n <= 0) break;
        total += static_cast<size_t>(n);
    }
    reader->close();
    jbyteArray result = env->NewByteArray(static_cast<jsize>(total));
    if (result != nullptr && total > 0) {
        env->SetByteArrayRegion(result, 0, static_cast<jsize>(total), bytes.data());
    }
    return result;
}

jboolean nativeCanOpenWriter(JNIEnv* env, jobject thiz) {
    sp<AudioStream> stream = streamOf(env, thiz);
    if (stream == nullptr) return JNI_FALSE;
    sp<velmar::AudioStreamWriter> writer;
    if (stream->openWriter(writer) != android::NO_ERROR) return JNI_FALSE;
    writer->close();
    return JNI_TRUE;
}

const JNINativeMethod kMethods[] = {
        {"nativeCreate", "(IIII)J", reinterpret_cast<void*>(nativeCreate)},
        {"nativeRelease", "()V", reinterpret_cast<void*>(nativeRelease)},
        {"nativeWritePosition", "()I", reinterpret_cast<void*>(nativeWritePosition)},
        {"nativeRead", "(II)[B", reinterpret_cast<void*>(nativeRead)},
        {"nativeCanOpenWriter", "()Z", reinterpret_cast<void*>(nativeCanOpenWriter)},
};

}  // namespace

extern "C" jint JNI_OnLoad(JavaVM* vm, void* /*reserved*/) {
    JNIEnv* env = nullptr;
    if (vm->GetEnv(reinterpret_cast<void**>(&env), JNI_VERSION_1_4) != JNI_OK) return JNI_ERR;
    jclass clazz = env->FindClass("velmar/speech/audio/AudioStream");
    if (clazz == nullptr) {
        ALOGE("Unable to find class velmar/speech/audio/AudioStream");
        return JNI_ERR;
    }
    gAudioStreamClassInfo.clazz = static_cast<jclass>(env->NewGlobalRef(clazz));
    gAudioStreamClassInfo.constructor = env->GetMethodID(clazz, "<init>", "(IIII)V");
    gAudioStreamClassInfo.mNativeInstance = env->GetFieldID(clazz, "mNativeInstance", "J");
    env->DeleteLocalRef(clazz);
    if (gAudioStreamClassInfo.constructor == nullptr ||
        gAudioStreamClassInfo.mNativeInstance == nullptr) {
        ALOGE("velmar/speech/audio/AudioStream lacks its constructor or mNativeInstance");
        return JNI_ERR;
    }
    if (env->RegisterNatives(gAudioStreamClassInfo.clazz, kMethods,
                             sizeof(kMethods) / sizeof(kMethods[0])) != JNI_OK) {
        return JNI_ERR;
    }
    return JNI_VERSION_1_4;
}
