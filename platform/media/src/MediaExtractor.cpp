// WAV extraction for the host through libsndfile: any sample width the library reads is delivered
// as 16-bit PCM, interleaved, in buffers of up to kFramesPerBuffer frames.
#include <fcntl.h>
#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MediaExtractorFactory.h>
#include <media/stagefright/foundation/MediaDefs.h>
#include <sndfile.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <mutex>

namespace android {

const char* MEDIA_MIMETYPE_CONTAINER_WAV = "audio/x-wav";
const char* MEDIA_MIMETYPE_AUDIO_RAW = "audio/raw";

FileSource::FileSource(const char* filename) : mPath(filename == nullptr ? "" : filename) {
    if (filename == nullptr) {
        mStatus = BAD_VALUE;
        return;
    }
    int fd = open(filename, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        mStatus = errno == EACCES ? PERMISSION_DENIED : NAME_NOT_FOUND;
        return;
    }
    close(fd);
    mStatus = NO_ERROR;
}

namespace {

constexpr sf_count_t kFramesPerBuffer = 1024;

class WavSource : public IMediaSource {
  public:
    WavSource(std::string path, const SF_INFO& info) : mPath(std::move(path)), mInfo(info) {}
    ~WavSource() override { stop(); }

    status_t start(MetaData* /*params*/) override {
        std::lock_guard<std::mutex> guard(mLock);
        if (mFile != nullptr) return INVALID_OPERATION;
        SF_INFO info{};
        mFile = sf_open(mPath.c_str(), SFM_READ, &info);
        return mFile == nullptr ? static_cast<status_t>(ERROR_IO) : NO_ERROR;
    }

    status_t stop() override {
        std::lock_guard<std::mutex> guard(mLock);
        if (mFile != nullptr) {
            sf_close(mFile);
            mFile = nullptr;
        }
        return NO_ERROR;
    }

    sp<MetaData> getFormat() override {
        sp<MetaData> format = new MetaData();
        format->setInt32(kKeySampleRate, mInfo.samplerate);
        format->setInt32(kKeyChannelCount, mInfo.channels);
        format->setInt32(kKeyBitsPerSample, 16);
        format->setInt64(kKeyDuration,
                         mInfo.samplerate > 0 ? mInfo.frames * 1000000LL / mInfo.samplerate : 0);
        return format;
    }

    status_t read(MediaBufferBase** buffer, const ReadOptions* /*options*/) override {
        if (buffer == nullptr) return BAD_VALUE;
        *buffer = nullptr;
        std::lock_guard<std::mutex> guard(mLock);
        if (mFile == nullptr) return INVALID_OPERATION;
        const size_t channels = static_cast<size_t>(mInfo.channels);
        MediaBufferBase* out = new MediaBufferBase(kFramesPerBuffer * channels * sizeof(int16_t));
        sf_count_t frames =
                sf_readf_short(mFile, static_cast<short*>(out->data()), kFramesPerBuffer);
        if (frames <= 0) {
            out->release();
            return sf_error(mFile) == SF_ERR_NO_ERROR ? static_cast<status_t>(ERROR_END_OF_STREAM)
                                                      : static_cast<status_t>(ERROR_IO);
        }
        out->set_range(0, static_cast<size_t>(frames) * channels * sizeof(int16_t));
        *buffer = out;
        return NO_ERROR;
    }

  private:
    const std::string mPath;
    const SF_INFO mInfo;
    std::mutex mLock;
    SNDFILE* mFile = nullptr;  // guarded by mLock
};

class WavExtractor : public IMediaExtractor {
  public:
    WavExtractor(std::string path, const SF_INFO& info) : mPath(std::move(path)), mInfo(info) {}
    size_t countTracks() override { return 1; }
    sp<IMediaSource> getTrack(size_t index) override {
        if (index != 0) return nullptr;
        return new WavSource(mPath, mInfo);
    }

  private:
    const std::string mPath;
    const SF_INFO mInfo;
};

}  // namespace

sp<IMediaExtractor> MediaExtractorFactory::Create(const sp<DataSource>& source, const char* mime) {
    if (source == nullptr || source->initCheck() != NO_ERROR) return nullptr;
    if (mime != nullptr && strcmp(mime, MEDIA_MIMETYPE_CONTAINER_WAV) != 0) return nullptr;
    SF_INFO info{};
    SNDFILE* file = sf_open(source->path().c_str(), SFM_READ, &info);
    if (file == nullptr) return nullptr;  // unreadable, truncated header, or not audio at all
    sf_close(file);
    const int container = info.format & SF_FORMAT_TYPEMASK;
    if (mime != nullptr && container != SF_FORMAT_WAV && container != SF_FORMAT_WAVEX) {
        return nullptr;
    }
    if (info.channels < 1 || info.samplerate < 1) return nullptr;
    return new WavExtractor(source->path(), info);
}

}  // namespace android
