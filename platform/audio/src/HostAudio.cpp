#include <media/AudioRecord.h>
#include <media/AudioSystem.h>
#include <media/HostAudio.h>
#include <poll.h>
#include <sndfile.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <vector>

namespace android {
namespace host {

namespace {

struct Recording {
    AudioRecord* raw;
    wp<AudioRecord> weak;
    audio_source_t source;
    bool active;
};

struct State {
    std::mutex lock;
    std::map<audio_source_t, sp<PcmProducer>> producers;
    std::map<audio_source_t, status_t> initFailures;
    std::map<audio_source_t, status_t> startFailures;
    std::map<audio_source_t, int> created;
    std::vector<Recording> recordings;
    std::map<audio_stream_type_t, bool> activeStreams;
    status_t isSourceActiveStatus = NO_ERROR;
    size_t minFrames = 320;
    status_t minFramesStatus = NO_ERROR;
    TimestampConfig timestamps;
};

State& state() {
    static State* s = new State();  // outlives recordings destroyed during exit
    return *s;
}

}  // namespace

// ---- producers
// ------------------------------------------------------------------------------------

void PushedPcm::push(std::vector<int16_t> samples) {
    std::lock_guard<std::mutex> guard(mLock);
    mSamples.insert(mSamples.end(), samples.begin(), samples.end());
}

size_t PushedPcm::pending() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSamples.size();
}

size_t PushedPcm::produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) {
    std::lock_guard<std::mutex> guard(mLock);
    size_t frames = std::min(maxFrames, mSamples.size() / channelCount);
    size_t samples = frames * channelCount;
    std::copy(mSamples.begin(), mSamples.begin() + static_cast<ptrdiff_t>(samples), dst);
    mSamples.erase(mSamples.begin(), mSamples.begin() + static_cast<ptrdiff_t>(samples));
    return frames;
}

GeneratedPcm::GeneratedPcm(std::function<int16_t(uint64_t, uint32_t)> fn) : mFn(std::move(fn)) {}

size_t GeneratedPcm::produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) {
    uint64_t first = mFrame.fetch_add(maxFrames);
    for (size_t f = 0; f < maxFrames; ++f) {
        for (uint32_t c = 0; c < channelCount; ++c) dst[f * channelCount + c] = mFn(first + f, c);
    }
    return maxFrames;
}

WavFilePcm::WavFilePcm(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        mStatus = NAME_NOT_FOUND;
        return;
    }
    mFile = file;
    mChannels = info.channels;
    mStatus = mChannels > 0 ? NO_ERROR : BAD_VALUE;
}

WavFilePcm::~WavFilePcm() {
    if (mFile != nullptr) sf_close(static_cast<SNDFILE*>(mFile));
}

size_t WavFilePcm::produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) {
    if (mStatus != NO_ERROR) return 0;
    mScratch.resize(maxFrames * static_cast<size_t>(mChannels));
    sf_count_t read = sf_readf_short(static_cast<SNDFILE*>(mFile), mScratch.data(),
                                     static_cast<sf_count_t>(maxFrames));
    size_t frames = read > 0 ? static_cast<size_t>(read) : 0;
    for (size_t f = 0; f < frames; ++f) {
        for (uint32_t c = 0; c < channelCount; ++c) {
            int source = c < static_cast<uint32_t>(mChannels) ? static_cast<int>(c) : 0;
            dst[f * channelCount + c] = mScratch[f * static_cast<size_t>(mChannels) + source];
        }
    }
    return frames;
}

FdPcm::FdPcm(int fd, bool ownFd, size_t bufferFrames, std::vector<int16_t> alreadyRead)
    : mFd(fd),
      mOwnFd(ownFd),
      mCapacity(std::max<size_t>(bufferFrames, 1)),
      mSamples(alreadyRead.begin(), alreadyRead.end()) {
    mReader = std::thread(&FdPcm::readLoop, this);
}

FdPcm::~FdPcm() {
    {
        std::lock_guard<std::mutex> guard(mLock);
        mStop = true;
    }
    mRoom.notify_all();
    mReader.join();
    if (mOwnFd) close(mFd);
}

void FdPcm::readLoop() {
    char bytes[4096];
    size_t carried = 0;  // an odd byte left from the previous read
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mLock);
            mRoom.wait(lock, [this] { return mStop || mSamples.size() < mCapacity; });
            if (mStop) return;
        }
        // A pipe may stay silent for a long time: wait in short steps so that the destructor is
        // never kept waiting.
        pollfd readable{mFd, POLLIN, 0};
        int ready = poll(&readable, 1, 100);
        if (ready == 0 || (ready < 0 && errno == EINTR)) continue;
        ssize_t got = ready < 0 ? -1 : read(mFd, bytes + carried, sizeof(bytes) - carried);
        if (got < 0 && errno == EINTR) continue;
        std::lock_guard<std::mutex> guard(mLock);
        if (got <= 0) {
            mEnded = true;  // end of input, or an error: either way no more audio comes
            return;
        }
        size_t total = carried + static_cast<size_t>(got);
        for (size_t i = 0; i + 1 < total; i += 2) {
            uint16_t lo = static_cast<uint8_t>(bytes[i]);
            uint16_t hi = static_cast<uint8_t>(bytes[i + 1]);
            mSamples.push_back(static_cast<int16_t>(lo | (hi << 8)));
        }
        carried = total % 2;
        if (carried) bytes[0] = bytes[total - 1];
    }
}

size_t FdPcm::produce(int16_t* dst, size_t maxFrames, uint32_t channelCount) {
    size_t frames;
    {
        std::lock_guard<std::mutex> guard(mLock);
        frames = internal::takeMono(&mSamples, dst, maxFrames, channelCount);
        mDelivered += frames;
        if (mRecordTimes && frames > 0) {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            mDeliveries.emplace_back(mDelivered, now.tv_sec * 1000000000LL + now.tv_nsec);
        }
    }
    if (frames > 0) mRoom.notify_all();
    return frames;
}

bool FdPcm::finished() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mEnded && mSamples.empty();
}

size_t FdPcm::buffered() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mSamples.size();
}

uint64_t FdPcm::framesDelivered() const {
    std::lock_guard<std::mutex> guard(mLock);
    return mDelivered;
}

void FdPcm::recordDeliveryTimes() {
    std::lock_guard<std::mutex> guard(mLock);
    mRecordTimes = true;
    mFirstTimedFrame = mDelivered;
}

int64_t FdPcm::deliveryTime(uint64_t frame) const {
    std::lock_guard<std::mutex> guard(mLock);
    if (!mRecordTimes || frame < mFirstTimedFrame) return -1;
    // Deliveries are in order: the first whose end passes the frame delivered it.
    auto found = std::upper_bound(
            mDeliveries.begin(), mDeliveries.end(), frame,
            [](uint64_t f, const std::pair<uint64_t, int64_t>& d) { return f < d.first; });
    return found == mDeliveries.end() ? -1 : found->second;
}

// ---- control
// --------------------------------------------------------------------------------------

void reset() {
    State& s = state();
    std::lock_guard<std::mutex> guard(s.lock);
    s.producers.clear();
    s.initFailures.clear();
    s.startFailures.clear();
    s.created.clear();
    s.activeStreams.clear();
    s.isSourceActiveStatus = NO_ERROR;
    s.minFrames = 320;
    s.minFramesStatus = NO_ERROR;
    s.timestamps = TimestampConfig();
    // Recordings still alive keep their entries until they are destroyed.
}

void attachSource(audio_source_t source, const sp<PcmProducer>& producer) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().producers[source] = producer;
}

void detachSource(audio_source_t source) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().producers.erase(source);
}

void failNextInitCheck(audio_source_t source, status_t status) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().initFailures[source] = status;
}

void failNextStart(audio_source_t source, status_t status) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().startFailures[source] = status;
}

void setIsSourceActiveStatus(status_t status) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().isSourceActiveStatus = status;
}

void setMinFrameCount(size_t frames, status_t status) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().minFrames = frames;
    state().minFramesStatus = status;
}

int stopRecordings(audio_source_t source) {
    std::vector<sp<AudioRecord>> running;
    {
        std::lock_guard<std::mutex> guard(state().lock);
        for (Recording& r : state().recordings) {
            if (r.source != source || !r.active) continue;
            sp<AudioRecord> strong = r.weak.promote();
            if (strong != nullptr) running.push_back(strong);
        }
    }
    // Stopped outside the lock: a stopping recording's callback thread may be asking for its
    // producer at this moment.
    for (const sp<AudioRecord>& record : running) record->platformStop();
    return static_cast<int>(running.size());
}

void setStreamActive(audio_stream_type_t stream, bool active) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().activeStreams[stream] = active;
}

void setTimestampConfig(const TimestampConfig& config) {
    std::lock_guard<std::mutex> guard(state().lock);
    state().timestamps = config;
}

TimestampConfig timestampConfig() {
    std::lock_guard<std::mutex> guard(state().lock);
    return state().timestamps;
}

int recordingsCreated(audio_source_t source) {
    std::lock_guard<std::mutex> guard(state().lock);
    auto found = state().created.find(source);
    return found == state().created.end() ? 0 : found->second;
}

int activeRecordings(audio_source_t source) {
    std::lock_guard<std::mutex> guard(state().lock);
    return static_cast<int>(
            std::count_if(state().recordings.begin(), state().recordings.end(),
                          [source](const Recording& r) { return r.source == source && r.active; }));
}

sp<AudioRecord> lastRecording(audio_source_t source) {
    std::lock_guard<std::mutex> guard(state().lock);
    for (auto it = state().recordings.rbegin(); it != state().recordings.rend(); ++it) {
        if (it->source == source) return it->weak.promote();
    }
    return nullptr;
}

// ---- used by AudioRecord and AudioSystem
// ---------------------------------------------------------

namespace internal {

size_t takeMono(std::deque<int16_t>* mono, int16_t* dst, size_t maxFrames, uint32_t channelCount) {
    size_t frames = std::min(maxFrames, mono->size());
    for (size_t f = 0; f < frames; ++f) {
        for (uint32_t c = 0; c < channelCount; ++c) dst[f * channelCount + c] = (*mono)[f];
    }
    mono->erase(mono->begin(), mono->begin() + static_cast<ptrdiff_t>(frames));
    return frames;
}

void recordingCreated(AudioRecord* record, status_t* initStatus) {
    std::lock_guard<std::mutex> guard(state().lock);
    State& s = state();
    ++s.created[record->inputSource()];
    auto failure = s.initFailures.find(record->inputSource());
    if (failure != s.initFailures.end()) {
        *initStatus = failure->second;
        s.initFailures.erase(failure);
    }
    s.recordings.push_back(
            Recording{record, wp<AudioRecord>(record), record->inputSource(), false});
}

void recordingDestroyed(AudioRecord* record) {
    std::lock_guard<std::mutex> guard(state().lock);
    auto& all = state().recordings;
    all.erase(std::remove_if(all.begin(), all.end(),
                             [record](const Recording& r) { return r.raw == record; }),
              all.end());
}

status_t recordingStarting(AudioRecord* record) {
    std::lock_guard<std::mutex> guard(state().lock);
    State& s = state();
    auto failure = s.startFailures.find(record->inputSource());
    if (failure != s.startFailures.end()) {
        status_t status = failure->second;
        s.startFailures.erase(failure);
        return status;
    }
    for (Recording& r : s.recordings) {
        if (r.raw == record) r.active = true;
    }
    return NO_ERROR;
}

void recordingStopped(AudioRecord* record) {
    std::lock_guard<std::mutex> guard(state().lock);
    for (Recording& r : state().recordings) {
        if (r.raw == record) r.active = false;
    }
}

sp<PcmProducer> producerFor(audio_source_t source) {
    std::lock_guard<std::mutex> guard(state().lock);
    auto found = state().producers.find(source);
    return found == state().producers.end() ? nullptr : found->second;
}

status_t isSourceActive(audio_source_t source, bool* active) {
    std::lock_guard<std::mutex> guard(state().lock);
    if (state().isSourceActiveStatus != NO_ERROR) return state().isSourceActiveStatus;
    *active = std::any_of(state().recordings.begin(), state().recordings.end(),
                          [source](const Recording& r) { return r.source == source && r.active; });
    return NO_ERROR;
}

status_t isStreamActive(audio_stream_type_t stream, bool* active) {
    std::lock_guard<std::mutex> guard(state().lock);
    auto found = state().activeStreams.find(stream);
    *active = found != state().activeStreams.end() && found->second;
    return NO_ERROR;
}

status_t minFrameCount(size_t* frames) {
    std::lock_guard<std::mutex> guard(state().lock);
    if (state().minFramesStatus != NO_ERROR) return state().minFramesStatus;
    *frames = state().minFrames;
    return NO_ERROR;
}

}  // namespace internal
}  // namespace host

status_t AudioSystem::isSourceActive(audio_source_t source, bool* state) {
    if (state == nullptr) return BAD_VALUE;
    return host::internal::isSourceActive(source, state);
}

status_t AudioSystem::isStreamActive(audio_stream_type_t stream, bool* state,
                                     uint32_t /*inPastMs*/) {
    if (state == nullptr || stream < 0 || stream >= AUDIO_STREAM_CNT) return BAD_VALUE;
    return host::internal::isStreamActive(stream, state);
}

}  // namespace android
