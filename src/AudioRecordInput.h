// Capture supervisor: a thread that, once per check interval, makes sure every adapter's recording
// is capturing, re-creating recordings the platform stopped. start() and stop() come from the
// service's control thread (IWakeWordInput); stop() cuts the thread's wait short.
//
// Locks: mControlLock serialises start(), stop() and addAudioRecord(); mLock carries only the
// stop request with mCondition. The thread never takes mControlLock, so stop() can hold it while it
// waits for the thread to end.
#ifndef VELMAR_AUDIO_RECORD_INPUT_H
#define VELMAR_AUDIO_RECORD_INPUT_H

#include <utils/Condition.h>
#include <utils/Mutex.h>
#include <utils/StrongPointer.h>
#include <utils/Thread.h>
#include <utils/Vector.h>

#include "IAudioRecordAdapter.h"
#include "IWakeWordInput.h"

namespace velmar {

class AudioRecordInput : public android::Thread, public IWakeWordInput {
  public:
    // Stores the interval and appends first. The thread is not started.
    AudioRecordInput(const android::sp<IAudioRecordAdapter>& first, int checkIntervalNs);
    // Neither stops the thread nor the adapters (the running thread keeps the object alive).
    ~AudioRecordInput() override;

    // Appends an adapter. Adapters are added before the first start(); the running thread reads the
    // list without a lock.
    void addAudioRecord(const android::sp<IAudioRecordAdapter>& adapter);
    // Runs the thread ("AudioRecordInput", nice 10) unless it runs already (then 0). On a run
    // failure logs it, stops the recordings and returns the status.
    android::status_t start() override;
    // Stops the thread (waking it at once) and every recording; 0 when it was not running, else
    // the last adapter stop failure or 0. Blocks until the thread has ended.
    android::status_t stop() override;
    // Stops every adapter in order; the last non-zero result, or 0.
    android::status_t stopAudioRecords();

    // Read by the service to find the microphone adapter for timestamps.
    android::Vector<android::sp<IAudioRecordAdapter>> mAudioRecords;

  private:
    bool threadLoop() override;

    android::Mutex mLock;
    android::Condition mCondition;
    bool mStopRequested;  // guarded by mLock
    android::Mutex mControlLock;
    int32_t mCheckIntervalNs;
};

}  // namespace velmar

#endif  // VELMAR_AUDIO_RECORD_INPUT_H
