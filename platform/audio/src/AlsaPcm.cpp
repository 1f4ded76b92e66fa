#define LOG_TAG "AlsaPcm"

#include <alsa/asoundlib.h>
#include <log/log.h>
#include <media/AlsaPcm.h>

#include <algorithm>
#include <chrono>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace android {
namespace host {

namespace {

constexpr unsigned kLatencyUs = 100000;  // the device's buffer: 100 ms, ample for a 10 ms reader
constexpr int kWaitStepMs = 50;          // how long one wait for the device may block
constexpr size_t kMaxEvents = 64;        // events nobody collected: the oldest go first

// alsa-lib prints its own diagnostics on stderr; a host program's user sees ours instead, and the
// library's go to the log next to the service's.
void alsaMessage(const char* file, int line, const char* /*function*/, int err, const char* fmt,
                 ...) {
    char text[256];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    ALOGW("alsa-lib %s:%d: %s%s%s", file, line, text, err != 0 ? ": " : "",
          err != 0 ? snd_strerror(err) : "");
}

// Opens device for 16-bit capture at rate with one channel, non-blocking so that a silent device
// cannot hold the reader. Returns 0 or a negative errno, and says which step failed in why.
int openCapture(const std::string& device, uint32_t rate, snd_pcm_t** pcm, std::string* why) {
    snd_lib_error_set_handler(alsaMessage);
    int err = snd_pcm_open(pcm, device.c_str(), SND_PCM_STREAM_CAPTURE, SND_PCM_NONBLOCK);
    if (err == -ENOENT) {
        *why = "no ALSA device named '" + device + "' (arecord -L lists them)";
        return err;
    }
    if (err < 0) {
        *why = "cannot open ALSA device '" + device + "' for capture: " + snd_strerror(err);
        return err;
    }
    // soft_resample: ALSA's plug layer converts rate, format and channels the device lacks.
    err = snd_pcm_set_params(*pcm, SND_PCM_FORMAT_S16_LE, SND_PCM_ACCESS_RW_INTERLEAVED, 1, rate,
                             1, kLatencyUs);
    if (err >= 0) err = snd_pcm_start(*pcm);
    if (err < 0) {
        *why = "ALSA device '" + device + "' cannot capture " + std::to_string(rate) +
               " Hz mono 16-bit: " + snd_strerror(err) +
               (device.rfind("hw:", 0) == 0 ? " (plug" + device + " converts)" : "");
        snd_pcm_close(*pcm);
        *pcm = nullptr;
    }
    return err;
}

}  // namespace

AlsaPcm::AlsaPcm(std::string device, int stallTimeoutMs, size_t bufferFrames)
    : mDevice(std::move(device)),
      mStallTimeoutMs(std::max(stallTimeoutMs, kWaitStepMs)),
      mCapacity(std::max<size_t>(bufferFrames, 1)) {}

AlsaPcm::~AlsaPcm() {
    stopCapture();
}

std::string AlsaPcm::probe(const std::string& device) {
    snd_pcm_t* pcm = nullptr;
    std::string why;
    if (openCapture(device, 16000, &pcm, &why) < 0) return why;
    snd_pcm_close(pcm);
    return "";
}

status_t AlsaPcm::startCapture(uint32_t sampleRate, uint32_t channelCount) {
    if (channelCount == 0 || sampleRate == 0) return BAD_VALUE;
    std::lock_guard<std::mutex> capture(mCaptureLock);
    if (mPcm != nullptr) {  // one recording at a time, as a capture device allows
        ALOGE("capture from '%s' is already open for another recording", mDevice.c_str());
        return INVALID_OPERATION;
    }
    snd_pcm_t* pcm = nullptr;
    std::string why;
    int err = openCapture(mDevice, sampleRate, &pcm, &why);
    if (err < 0) {
        note(why);
        ALOGE("%s", why.c_str());
        return err == -ENOENT || err == -ENODEV ? NAME_NOT_FOUND : NO_INIT;
    }
    bool reopened = mFailed.exchange(false);
    mOpens.fetch_add(1);
    {
        std::lock_guard<std::mutex> guard(mLock);
        mLastEvent.clear();
        mSamples.clear();
        mStop = false;
    }
    // Only a restart after a failure is news; a recording stopped and started by its client is not.
    if (reopened) note("capture from '" + mDevice + "' opened again");
    mPcm = pcm;
    mReader = std::thread(&AlsaPcm::readLoop, this, static_cast<void*>(pcm), sampleRate);
    return NO_ERROR;
}

void AlsaPcm::stopCapture() {
    std::lock_guard<std::mutex> capture(mCaptureLock);
    {
        std::lock_guard<std::mutex> guard(mLock);
        mStop = true;
    }
    mRoom.notify_all();
    if (mReader.joinable()) mReader.join();
    if (mPcm != nullptr) snd_pcm_close(static_cast<snd_pcm_t*>(mPcm));
    mPcm = nullptr;
}

bool AlsaPcm::failed() const {
    // What the device delivered before it broke is still handed out first.
    std::lock_guard<std::mutex> guard(mLock);
    return mFailed.load() && mSamples.empty();
}

size_t AlsaPcm::produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) {
    size_t frames;
    {
        std::lock_guard<std::mutex> guard(mLock);
        frames = internal::takeMono(&mSamples, dst, maxFrames, channelCount);
    }
    if (frames > 0) {
        mDelivered.fetch_add(frames);
        mRoom.notify_all();
    }
    return frames;
}

std::vector<std::string> AlsaPcm::events() {
    std::lock_guard<std::mutex> guard(mLock);
    std::vector<std::string> events;
    events.swap(mEvents);
    return events;
}

void AlsaPcm::note(const std::string& event) {
    std::lock_guard<std::mutex> guard(mLock);
    // A device that stays away fails every restart the same way: once is news.
    if (event == mLastEvent) return;
    mLastEvent = event;
    if (mEvents.size() >= kMaxEvents) mEvents.erase(mEvents.begin());
    mEvents.push_back(event);
}

void AlsaPcm::fail(const std::string& why) {
    std::string event = "capture from '" + mDevice + "' stopped: " + why;
    ALOGE("%s", event.c_str());
    note(event);
    mFailed.store(true);
}

void AlsaPcm::readLoop(void* handle, uint32_t sampleRate) {
    snd_pcm_t* pcm = static_cast<snd_pcm_t*>(handle);
    std::vector<int16_t> chunk(std::max<uint32_t>(sampleRate / 100, 1));  // 10 ms
    auto lastFrames = std::chrono::steady_clock::now();
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mLock);
            // A full buffer waits for the recording to take frames; the device keeps capturing
            // meanwhile and reports an overrun if this lasts, which is recovered below.
            mRoom.wait_for(lock, std::chrono::milliseconds(kWaitStepMs),
                           [this] { return mStop || mSamples.size() < mCapacity; });
            if (mStop) return;
            if (mSamples.size() >= mCapacity) {
                lastFrames = std::chrono::steady_clock::now();  // waiting on us is no stall
                continue;
            }
        }
        int ready = snd_pcm_wait(pcm, kWaitStepMs);
        snd_pcm_sframes_t got = ready < 0 ? ready : 0;
        if (ready > 0) {
            // A file-backed PCM past the end of its file fills nothing: that reads as silence.
            std::fill(chunk.begin(), chunk.end(), 0);
            got = snd_pcm_readi(pcm, chunk.data(), chunk.size());
        }
        if (got < 0 && got != -EAGAIN) {
            // An overrun (EPIPE) or a suspend (ESTRPIPE) is recovered in place; anything else,
            // such as ENODEV from a device that is gone, ends the capture. A resumed stream runs
            // already; a re-prepared one has to be started again.
            if (got == -EPIPE) mOverruns.fetch_add(1);
            int err = snd_pcm_recover(pcm, static_cast<int>(got), 1);
            if (err >= 0 && snd_pcm_state(pcm) == SND_PCM_STATE_PREPARED) err = snd_pcm_start(pcm);
            if (err < 0) {
                fail(snd_strerror(err));
                return;
            }
            continue;
        }
        auto now = std::chrono::steady_clock::now();
        if (got <= 0) {
            // Nothing this time, however the device said so (a timeout, EAGAIN, zero frames).
            auto silentMs =
                    std::chrono::duration_cast<std::chrono::milliseconds>(now - lastFrames).count();
            if (silentMs >= mStallTimeoutMs) {
                fail("the device delivered nothing for " + std::to_string(silentMs) + " ms");
                return;
            }
            continue;
        }
        lastFrames = now;
        std::lock_guard<std::mutex> guard(mLock);
        mSamples.insert(mSamples.end(), chunk.begin(), chunk.begin() + got);
    }
}

}  // namespace host
}  // namespace android
