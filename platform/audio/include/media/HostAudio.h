// The host audio system behind AudioRecord and AudioSystem: what tests and host programs use to
// play the device's part. Attach a PCM producer to an input source, mark output streams active,
// make the next recording fail, stop a running recording from the platform's side, and watch
// which recordings exist. Thread-safe.
#ifndef HOST_MEDIA_HOST_AUDIO_H
#define HOST_MEDIA_HOST_AUDIO_H

#include <system/audio.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace android {

class AudioRecord;

namespace host {

// Supplies interleaved 16-bit frames to recordings on one input source. Called on a recording's
// callback thread.
class PcmProducer : public virtual RefBase {
  public:
    // Writes up to maxFrames frames of channelCount interleaved samples to dst and returns how many
    // it wrote; 0 means nothing is available this period (no buffer is delivered).
    virtual size_t produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) = 0;

    // A recording on the source starts capturing: a producer backed by a device opens it here.
    // Anything but NO_ERROR refuses the start with that status. On the thread calling start().
    virtual status_t startCapture(uint32_t /*sampleRate*/, uint32_t /*channelCount*/) {
        return NO_ERROR;
    }
    // The recording whose startCapture() succeeded stops capturing, whoever stopped it (its client,
    // the platform, or its own callback thread after failed()). Once per successful start.
    virtual void stopCapture() {}
    // True when the source broke (the device vanished or stopped delivering). The recording then
    // ends as if the platform had stopped it, and its client's supervision starts a new one.
    // Read by the recording's callback thread every period.
    virtual bool failed() const { return false; }
};

// Buffers pushed by a test, delivered in order (a buffer larger than the recording's frame count
// is split over several periods).
class PushedPcm : public PcmProducer {
  public:
    // frames of interleaved samples, channelCount per frame as the recording expects.
    void push(std::vector<int16_t> samples);
    size_t pending() const;  // samples not yet delivered
    size_t produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) override;

  private:
    mutable std::mutex mLock;
    std::deque<int16_t> mSamples;  // guarded by mLock
};

// A generator: sample = fn(frame index, channel), forever.
class GeneratedPcm : public PcmProducer {
  public:
    explicit GeneratedPcm(std::function<int16_t(uint64_t frame, uint32_t channel)> fn);
    size_t produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) override;

  private:
    std::function<int16_t(uint64_t, uint32_t)> mFn;
    std::atomic<uint64_t> mFrame{0};
};

// A mono or multichannel WAV file read through libsndfile; its channels are mapped onto the
// recording's (extra recording channels repeat channel 0). Ends (produces 0) at end of file.
class WavFilePcm : public PcmProducer {
  public:
    explicit WavFilePcm(const std::string& path);
    ~WavFilePcm() override;
    status_t initCheck() const { return mStatus; }
    size_t produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) override;

  private:
    void* mFile = nullptr;  // SNDFILE*
    int mChannels = 0;
    status_t mStatus = NO_INIT;
    std::vector<int16_t> mScratch;
};

// Raw PCM from a file descriptor: 16 kHz, 16-bit little-endian, mono, as `arecord -r 16000 -f
// S16_LE -c 1` writes it. A reader thread of its own moves what arrives (a pipe's real-time
// trickle, or a file at once) into a bounded buffer; produce() hands out what is buffered, up to
// maxFrames, without waiting for more, and repeats the mono sample in every channel of the
// recording. When the buffer is full the reader waits, so a file plays at the recording's real-time
// pace. At end of input produce() returns 0 from then on and finished() turns true once all is
// delivered. Each delivery can be time-stamped (see deliveryTime()) to measure latency from the
// audio.
class FdPcm : public PcmProducer {
  public:
    // Takes ownership of fd (closes it) when ownFd. bufferFrames: at most this much is read ahead.
    // alreadyRead: samples a caller read from fd before (to look at its format), played first.
    FdPcm(int fd, bool ownFd, size_t bufferFrames = 32000, std::vector<int16_t> alreadyRead = {});
    ~FdPcm() override;
    size_t produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) override;

    // End of input reached (or a read error) and every frame read has been delivered.
    bool finished() const;
    // Frames read ahead and not delivered yet.
    size_t buffered() const;
    uint64_t framesDelivered() const;
    // Keeps the CLOCK_MONOTONIC time of each delivery from now on.
    void recordDeliveryTimes();
    // When the frame with this index (counted from the first frame delivered) was delivered, in
    // CLOCK_MONOTONIC nanoseconds; -1 if it was not delivered (yet) since times are recorded.
    int64_t deliveryTime(uint64_t frame) const;

  private:
    void readLoop();

    const int mFd;
    const bool mOwnFd;
    const size_t mCapacity;
    mutable std::mutex mLock;
    std::condition_variable mRoom;
    std::deque<int16_t> mSamples;                           // guarded by mLock
    bool mEnded = false;                                    // guarded by mLock
    bool mStop = false;                                     // guarded by mLock
    uint64_t mDelivered = 0;                                // guarded by mLock
    bool mRecordTimes = false;                              // guarded by mLock
    uint64_t mFirstTimedFrame = 0;                          // guarded by mLock
    std::vector<std::pair<uint64_t, int64_t>> mDeliveries;  // (end frame, time); mLock
    std::thread mReader;
};

struct TimestampConfig {
    bool kernel = true;                 // report LOCATION_KERNEL times
    bool server = true;                 // report LOCATION_SERVER times
    int64_t kernelLatencyNs = 2000000;  // kernel time = server time - latency
    int64_t monotonicOffsetNs = 0;      // mTimebaseOffset[TIMEBASE_MONOTONIC]
};

// Resets everything: no producers, no failures, no active streams, default frame count.
void reset();

void attachSource(audio_source_t source, const sp<PcmProducer>& producer);
void detachSource(audio_source_t source);

// The next recording created on source reports this initCheck status (once).
void failNextInitCheck(audio_source_t source, status_t status);
// The next start() of a recording on source fails with this status (once).
void failNextStart(audio_source_t source, status_t status);
// isSourceActive answers with this status until cleared with NO_ERROR.
void setIsSourceActiveStatus(status_t status);
// getMinFrameCount answers frames (and status).
void setMinFrameCount(size_t frames, status_t status = NO_ERROR);

// Stops every running recording on source from the platform's side. Returns how many it stopped.
int stopRecordings(audio_source_t source);

void setStreamActive(audio_stream_type_t stream, bool active);
void setTimestampConfig(const TimestampConfig& config);
TimestampConfig timestampConfig();

// Recordings created on source since reset (all, including failed ones).
int recordingsCreated(audio_source_t source);
// Recordings on source that are capturing now.
int activeRecordings(audio_source_t source);
// The most recently created recording on source (null when none).
sp<AudioRecord> lastRecording(audio_source_t source);

// Used by AudioRecord, AudioSystem and the producers.
namespace internal {
// Moves up to maxFrames mono samples from the front of mono into dst, each repeated in every one
// of channelCount channels; returns how many frames it moved.
size_t takeMono(std::deque<int16_t>* mono, int16_t* dst, size_t maxFrames, uint32_t channelCount);
void recordingCreated(AudioRecord* record, status_t* initStatus);
void recordingDestroyed(AudioRecord* record);
status_t recordingStarting(AudioRecord* record);
void recordingStopped(AudioRecord* record);
sp<PcmProducer> producerFor(audio_source_t source);
status_t isSourceActive(audio_source_t source, bool* state);
status_t isStreamActive(audio_stream_type_t stream, bool* state);
status_t minFrameCount(size_t* frames);
}  // namespace internal

}  // namespace host
}  // namespace android

#endif  // HOST_MEDIA_HOST_AUDIO_H
