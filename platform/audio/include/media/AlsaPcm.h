// A microphone on the host through ALSA: a PcmProducer that captures from an ALSA device ("default",
// "plughw:1,0", or any PCM an asoundrc defines) while a recording on its source runs.
//
// Each recording that starts opens the device for 16-bit mono at the recording's rate (a plug
// device such as "default" or "plughw:N" converts; a bare "hw:N" must support it) and a reader
// thread of its own moves what the device delivers into a bounded buffer; produce() hands out what
// is buffered without waiting. When the device reports an error it cannot recover from (a USB
// microphone pulled out: ENODEV), or delivers nothing for stallTimeoutMs, the producer turns
// failed() once what it buffered has been handed out: the recording ends as if the platform had
// stopped it, and the service's capture supervision starts a new recording, which opens the device
// again. An overrun (the reader fell behind) or a suspend is recovered in place.
//
// Threads: startCapture()/stopCapture() on the recording's controlling or callback thread;
// produce() and failed() on the recording's callback thread; the reader thread is internal; the
// counters and events() from any thread. Thread-safe.
#ifndef HOST_MEDIA_ALSA_PCM_H
#define HOST_MEDIA_ALSA_PCM_H

#include <media/HostAudio.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace android {
namespace host {

class AlsaPcm : public PcmProducer {
  public:
    // Nothing is opened until a recording starts.
    explicit AlsaPcm(std::string device, int stallTimeoutMs = 1000, size_t bufferFrames = 16000);
    ~AlsaPcm() override;

    // Opens the device for capture at 16 kHz mono 16-bit and closes it again: "" when it can be
    // used, else one line saying why (for a program to print before it starts a service).
    static std::string probe(const std::string& device);

    // Opens the device: NAME_NOT_FOUND when it does not exist, NO_INIT when it cannot capture
    // 16-bit mono at sampleRate, INVALID_OPERATION while another recording has it open.
    status_t startCapture(uint32_t sampleRate, uint32_t channelCount) override;
    void stopCapture() override;
    bool failed() const override;
    size_t produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) override;

    const std::string& device() const { return mDevice; }
    // Times the device was opened for a recording (the first, and each restart).
    int opens() const { return mOpens.load(); }
    uint64_t framesDelivered() const { return mDelivered.load(); }
    int overruns() const { return mOverruns.load(); }
    // What happened to the device since the last call, oldest first, one line each ("capture
    // stopped: ...", "opened again", "cannot open: ..."): for a program to show its user.
    std::vector<std::string> events();

  private:
    void readLoop(void* pcm, uint32_t sampleRate);
    void fail(const std::string& why);
    void note(const std::string& event);

    const std::string mDevice;
    const int mStallTimeoutMs;
    const size_t mCapacity;

    mutable std::mutex mLock;       // guards the four fields below and mLastEvent
    std::condition_variable mRoom;  // signalled when produce() takes frames, or on stop
    std::deque<int16_t> mSamples;   // mono frames read and not yet delivered
    bool mStop = false;             // the reader is asked to end
    std::vector<std::string> mEvents;
    std::string mLastEvent;  // not noted twice in a row; cleared when the device opens

    // Serialises startCapture() and stopCapture(); guards the two fields below.
    std::mutex mCaptureLock;
    std::thread mReader;   // started by startCapture(), joined by stopCapture()
    void* mPcm = nullptr;  // snd_pcm_t*, open from startCapture() to stopCapture()

    std::atomic<bool> mFailed{false};
    std::atomic<int> mOpens{0};
    std::atomic<int> mOverruns{0};
    std::atomic<uint64_t> mDelivered{0};
};

}  // namespace host
}  // namespace android

#endif  // HOST_MEDIA_ALSA_PCM_H
