#include "SpotterDecoder.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <future>

namespace norvo_ps {

namespace {

int64_t threadCpuNs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000000000LL + now.tv_nsec;
}

// Reads an unsigned number following "key": in a small JSON text, without allocating (this runs
// on audio threads).
bool readNumber(const char* json, const char* key, unsigned long long* out) {
    const char* field = strstr(json, key);
    if (field == nullptr) return false;
    field += strlen(key);
    while (*field == ' ' || *field == '\t') ++field;
    if (*field++ != ':') return false;
    while (*field == ' ' || *field == '\t') ++field;
    if (!isdigit(static_cast<unsigned char>(*field))) return false;
    char* end = nullptr;
    errno = 0;
    *out = strtoull(field, &end, 10);
    return errno == 0;
}

}  // namespace

SpotterDecoder::SpotterDecoder(Options options, CallbackRegistry* callbacks)
    : mOptions(std::move(options)), mCallbacks(callbacks), mQueue(kQueueCells) {}

NorvoStatus SpotterDecoder::start(Options options, CallbackRegistry* callbacks,
                                  std::shared_ptr<SpotterDecoder>* out, std::string* error) {
    std::shared_ptr<SpotterDecoder> decoder(new SpotterDecoder(std::move(options), callbacks));
    std::promise<std::pair<NorvoStatus, std::string>> ready;
    std::future<std::pair<NorvoStatus, std::string>> result = ready.get_future();
    // The thread holds a reference of its own, so that a decoder deleted from inside one of its
    // own callbacks lives until its thread has left that callback.
    decoder->mThread = std::thread(&SpotterDecoder::run, decoder.get(), decoder, std::move(ready));
    std::pair<NorvoStatus, std::string> started = result.get();
    if (started.first != NORVO_SUCCESS) {
        decoder->mThread.join();
        *error = started.second;
        return started.first;
    }
    *out = std::move(decoder);
    return NORVO_SUCCESS;
}

SpotterDecoder::~SpotterDecoder() {
    if (!mThread.joinable()) return;
    mStopping.store(true);
    mQueue.wake();
    // The last reference can be the thread's own: then this runs on it, as its last act.
    if (mThread.get_id() == std::this_thread::get_id()) {
        mThread.detach();
    } else {
        mThread.join();
    }
}

void SpotterDecoder::run(std::shared_ptr<SpotterDecoder> /*keepAlive: released as the thread ends*/,
                         std::promise<std::pair<NorvoStatus, std::string>> ready) {
    mThreadId.store(static_cast<int>(syscall(SYS_gettid)));
    pthread_setname_np(pthread_self(), "NorvoSpotter");
    std::string error;
    // The recognizer is created, used and freed on this thread only.
    mSpotter = KeywordSpotter::create(mOptions.modelSet, mOptions.keywords, &error);
    if (mSpotter == nullptr) {
        ready.set_value({NORVO_PS_MODEL_LOAD_FAILED, error});
        return;
    }
    ready.set_value({NORVO_SUCCESS, ""});

    while (!mStopping.load()) {
        runCommands();
        const AudioQueue::Cell* cell = mQueue.front();
        if (cell == nullptr) {
            reportOverflow();
            mQueue.waitForData(500);
            continue;
        }
        int64_t started = threadCpuNs();
        mSpotter->feed(cell->samples, cell->frames, cell->firstFrame, &mDetections);
        uint32_t frames = cell->frames;
        mQueue.popFront();
        mDecodeCpuNs.fetch_add(static_cast<uint64_t>(threadCpuNs() - started));
        mDecodedFrames.fetch_add(frames);
        mRestarts.store(mSpotter->restarts());
        deliver();
        markDecoded(/*cells=*/1, /*commands=*/0);
    }
    reportOverflow();

    double audioSeconds = static_cast<double>(mDecodedFrames.load()) / 16000.0;
    double cpuSeconds = static_cast<double>(mDecodeCpuNs.load()) / 1e9;
    char metrics[256];
    snprintf(metrics, sizeof(metrics),
             "decoder=%s audio_s=%.1f cpu_s=%.2f rtf=%.4f detections=%llu restarts=%llu "
             "dropped_frames=%llu",
             mOptions.id.c_str(), audioSeconds, cpuSeconds,
             audioSeconds > 0 ? cpuSeconds / audioSeconds : 0.0,
             static_cast<unsigned long long>(mDetectionCount.load()),
             static_cast<unsigned long long>(mRestarts.load()),
             static_cast<unsigned long long>(mQueue.droppedFrames()));
    mCallbacks->call(mCallbacks->metrics, CallbackRegistry::kComponent,
                     static_cast<const char*>(metrics));
    mSpotter.reset();
    // Wakes anyone in waitUntilDecoded(): nothing more will be decoded.
    markDecoded(0, 0);
}

NorvoStatus SpotterDecoder::push(const NorvoAudioEvent* event) {
    if (event == nullptr || event->type == nullptr || strcmp(event->type, "samples") != 0 ||
        event->metadata == nullptr) {
        return NORVO_PS_BAD_AUDIO_EVENT;
    }
    unsigned long long count = 0;
    unsigned long long first = 0;
    if (!readNumber(event->metadata, "\"sample_count\"", &count) ||
        !readNumber(event->metadata, "\"first_sample_index\"", &first)) {
        return NORVO_PS_BAD_AUDIO_EVENT;
    }
    if (count == 0) return NORVO_SUCCESS;
    // The sample count covers every channel; the index counts frames.
    if (event->samples == nullptr || count % mOptions.channels != 0) {
        return NORVO_PS_BAD_AUDIO_EVENT;
    }
    size_t frames = static_cast<size_t>(count / mOptions.channels);
    size_t queued = mQueue.push(static_cast<const int16_t*>(event->samples), frames,
                                mOptions.channels, static_cast<int64_t>(first));
    return queued == frames ? NORVO_SUCCESS : NORVO_PS_QUEUE_FULL;
}

void SpotterDecoder::endSession() {
    {
        std::lock_guard<std::mutex> guard(mCommandLock);
        mCommands.push_back(Command{mQueue.claimed(), true});
        ++mCommandsQueued;
    }
    mQueue.wake();
}

void SpotterDecoder::runCommands() {
    for (;;) {
        {
            std::lock_guard<std::mutex> guard(mCommandLock);
            if (mCommands.empty() || mCommands.front().afterCells > mQueue.popped()) return;
            mCommands.pop_front();
        }
        mSpotter->endSession(&mDetections);
        deliver();
        markDecoded(0, 1);
    }
}

void SpotterDecoder::deliver() {
    for (const Detection& detection : mDetections) {
        if (mStopping.load()) break;
        const ModelSet::Keyword& keyword = mOptions.modelSet->keywords()[detection.keyword];
        char blob[384];
        int length =
                snprintf(blob, sizeof(blob),
                         "{\"keyword\":\"%s\",\"phrase\":\"%s\",\"score\":%.2f,\"threshold\":%.2f,"
                         "\"frames\":[%d,%d],\"samples\":[%lld,%lld],\"decided_at\":%lld}",
                         keyword.name.c_str(), keyword.phrase.c_str(), detection.scoreLog10,
                         std::log10(keyword.threshold), detection.startFrame, detection.endFrame,
                         static_cast<long long>(detection.beginSample),
                         static_cast<long long>(detection.endSample),
                         static_cast<long long>(detection.decidedAt));
        NorvoEnumeratedResult result{};
        result.beginSampleIndex = detection.beginSample;
        result.endSampleIndex = detection.endSample;
        result.keyword = keyword.name.c_str();
        result.detailText = keyword.phrase.c_str();
        result.detailValue = static_cast<int32_t>(std::lround(detection.scoreLog10 * 100));
        result.detectionType = 0;  // an accepted detection; near misses are not reported
        result.blob.size = static_cast<uint32_t>(std::min<int>(length, sizeof(blob) - 1));
        result.blob.data = reinterpret_cast<const uint8_t*>(blob);
        result.tailValue = detection.decidedAt;
        const char* id = mOptions.id.c_str();
        bool called = keyword.command ? mCallbacks->call(mCallbacks->localCommand, id, &result)
                                      : mCallbacks->call(mCallbacks->enumeratedResult, id, &result);
        mDetectionCount.fetch_add(1);
        if (!called) {
            mCallbacks->log(kLogDebug, "decoder '%s': %s heard at %lld..%lld, no callback set", id,
                            keyword.name.c_str(), static_cast<long long>(detection.beginSample),
                            static_cast<long long>(detection.endSample));
        }
    }
    mDetections.clear();
}

void SpotterDecoder::reportOverflow() {
    uint64_t dropped = mQueue.droppedFrames();
    if (dropped == mReportedDrops) return;
    mCallbacks->log(kLogWarning,
                    "decoder '%s': audio queue full, dropped %llu frames (%llu frames in %llu "
                    "pushes so far)",
                    mOptions.id.c_str(), static_cast<unsigned long long>(dropped - mReportedDrops),
                    static_cast<unsigned long long>(dropped),
                    static_cast<unsigned long long>(mQueue.overflowPushes()));
    mReportedDrops = dropped;
}

void SpotterDecoder::markDecoded(uint64_t cells, uint64_t commands) {
    {
        std::lock_guard<std::mutex> guard(mDecodedLock);
        mDecodedCells += cells;
        mCommandsDone += commands;
    }
    mDecodedChanged.notify_all();
}

void SpotterDecoder::stop() {
    mStopping.store(true);
    mQueue.wake();
    if (!mThread.joinable() || mThread.get_id() == std::this_thread::get_id()) return;
    mThread.join();
}

bool SpotterDecoder::waitUntilDecoded(int timeoutMs) {
    uint64_t cells = mQueue.claimed();
    uint64_t commands;
    {
        std::lock_guard<std::mutex> guard(mCommandLock);
        commands = mCommandsQueued;
    }
    std::unique_lock<std::mutex> lock(mDecodedLock);
    return mDecodedChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] {
        return (mDecodedCells >= cells && mCommandsDone >= commands) || mStopping.load();
    }) && !mStopping.load();
}

DecoderStats SpotterDecoder::stats() const {
    DecoderStats stats;
    stats.queuedFrames = mQueue.queuedFrames();
    stats.decodedFrames = mDecodedFrames.load();
    stats.droppedFrames = mQueue.droppedFrames();
    stats.overflowPushes = mQueue.overflowPushes();
    stats.restarts = mRestarts.load();
    stats.detections = mDetectionCount.load();
    stats.decodeCpuNs = mDecodeCpuNs.load();
    stats.threadId = mThreadId.load();
    return stats;
}

}  // namespace norvo_ps
