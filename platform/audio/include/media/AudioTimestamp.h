// Host subset of the platform's audio timestamps: positions and times of the newest frame at
// several points of the capture path.
#ifndef HOST_MEDIA_AUDIO_TIMESTAMP_H
#define HOST_MEDIA_AUDIO_TIMESTAMP_H

#include <cstdint>

namespace android {

class ExtendedTimestamp {
  public:
    enum Location {
        LOCATION_INVALID = -1,
        LOCATION_CLIENT = 0,  // what the client has received
        LOCATION_SERVER,      // what the audio server has read from the device
        LOCATION_KERNEL,      // what the device driver has captured
        LOCATION_SERVER_LASTKERNELOK,
        LOCATION_KERNEL_LASTKERNELOK,
        LOCATION_MAX
    };
    enum Timebase {
        TIMEBASE_MONOTONIC = 0,
        TIMEBASE_BOOTTIME = 1,
        TIMEBASE_MAX,
    };

    ExtendedTimestamp() { clear(); }

    // Positions 0, times -1 (unknown), offsets 0.
    void clear() {
        for (int i = 0; i < LOCATION_MAX; ++i) {
            mPosition[i] = 0;
            mTimeNs[i] = -1;
        }
        for (int i = 0; i < TIMEBASE_MAX; ++i) mTimebaseOffset[i] = 0;
        mFlushed = 0;
    }

    int64_t mPosition[LOCATION_MAX];        // frames
    int64_t mTimeNs[LOCATION_MAX];          // CLOCK_MONOTONIC, or -1 when unknown
    int64_t mTimebaseOffset[TIMEBASE_MAX];  // add to mTimeNs to express it in that timebase
    int64_t mFlushed;
};

}  // namespace android

#endif  // HOST_MEDIA_AUDIO_TIMESTAMP_H
