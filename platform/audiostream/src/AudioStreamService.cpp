#include <audiostream/IAudioStreamService.h>

namespace velmar {

IMPLEMENT_META_INTERFACE(AudioStreamService, "velmar.speech.audio.IAudioStreamService")

namespace host {

android::sp<AudioStream> AudioStreamService::getAudioStream() {
    std::lock_guard<std::mutex> guard(mLock);
    return mStream;
}

void AudioStreamService::setAudioStream(const android::sp<AudioStream>& stream) {
    std::lock_guard<std::mutex> guard(mLock);
    mStream = stream;
}

}  // namespace host
}  // namespace velmar
