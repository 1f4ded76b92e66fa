/*
 * JNI support of the audio stream library: the cached Java class velmar.speech.audio.AudioStream
 * and the mutex under which native code reads or clears its native pointer. Filled when the
 * library's JNI part (libaudiostream_jni) is loaded by the Java class.
 */
#ifndef VELMAR_AUDIOSTREAM_AUDIO_STREAM_JNI_H
#define VELMAR_AUDIOSTREAM_AUDIO_STREAM_JNI_H

#include <jni.h>
#include <utils/Mutex.h>

namespace velmar {

struct AudioStreamClassInfo {
    jclass clazz;            // global reference to velmar/speech/audio/AudioStream
    jmethodID constructor;   // (IIII)V
    jfieldID mNativeInstance;  // J: address of the native AudioStream (one strong reference)
};

extern AudioStreamClassInfo gAudioStreamClassInfo;
// Held while reading or clearing mNativeInstance of any Java AudioStream.
extern android::Mutex gJniMutex;

}  // namespace velmar

#endif  // VELMAR_AUDIOSTREAM_AUDIO_STREAM_JNI_H
