#include <audiostream/AudioStreamJni.h>

namespace velmar {

AudioStreamClassInfo gAudioStreamClassInfo = {nullptr, nullptr, nullptr};
android::Mutex gJniMutex;

}  // namespace velmar
