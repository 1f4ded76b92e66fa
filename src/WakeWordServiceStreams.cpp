// The mirror writers: captured input is copied into the main stream (and the second channel into
// the one-mic stream) for other consumers on the device.
#define LOG_TAG "WakeWordService"
#define ATRACE_TAG ATRACE_TAG_AUDIO

#include <log/log.h>
#include <utils/Trace.h>

#include "WakeWordService.h"

namespace velmar {

using android::sp;
using android::status_t;

namespace {

status_t openWriter(const sp<AudioStream>& stream, sp<AudioStreamWriter>& writer,
                    const char* missingMessage, const char* failureFormat) {
    if (stream == nullptr) {
        ALOGE("%s", missingMessage);
        return android::INVALID_OPERATION;
    }
    status_t status = stream->openWriter(writer);
    if (status != android::NO_ERROR) {
        ALOGE(failureFormat, status);
        return status;
    }
    return android::NO_ERROR;
}

status_t closeWriter(sp<AudioStreamWriter>& writer) {
    if (writer == nullptr) return android::INVALID_OPERATION;
    status_t status = writer->close();
    writer.clear();
    return status;
}

}  // namespace

status_t WakeWordService::startAudioStream() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    return openWriter(mAudioStream, mAudioStreamWriter, "AudioStream instance is null",
                      "Unable to open AudioStreamWriter (%d)");
}

status_t WakeWordService::startOneMicAudioStream() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    return openWriter(mOneMicAudioStream, mOneMicAudioStreamWriter,
                      "One Mic AudioStream instance is null",
                      "Unable to open AudioStreamWriter (%d) for One Mic");
}

status_t WakeWordService::stopAudioStream() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    return closeWriter(mAudioStreamWriter);
}

status_t WakeWordService::stopOneMicAudioStream() {
    ATRACE_NAME(__PRETTY_FUNCTION__);
    return closeWriter(mOneMicAudioStreamWriter);
}

}  // namespace velmar
