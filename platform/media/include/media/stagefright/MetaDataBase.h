// Host subset of the media framework's metadata: typed values under four-character keys.
#ifndef HOST_META_DATA_BASE_H
#define HOST_META_DATA_BASE_H

#include <utils/RefBase.h>

#include <cstdint>
#include <map>

namespace android {

enum {
    kKeyMIMEType = 0x6d696d65,       // 'mime'
    kKeySampleRate = 0x73727465,     // 'srte', int32 Hz
    kKeyChannelCount = 0x2363686e,   // '#chn', int32
    kKeyDuration = 0x6475726e,       // 'durn', int64 us
    kKeyBitsPerSample = 0x62697473,  // 'bits', int32
};

class MetaDataBase {
  public:
    virtual ~MetaDataBase() = default;
    void setInt32(uint32_t key, int32_t value) { mInt32[key] = value; }
    void setInt64(uint32_t key, int64_t value) { mInt64[key] = value; }
    // False (and *value untouched) when the key is not set as an int32.
    bool findInt32(uint32_t key, int32_t* value) const {
        auto found = mInt32.find(key);
        if (found == mInt32.end()) return false;
        *value = found->second;
        return true;
    }
    bool findInt64(uint32_t key, int64_t* value) const {
        auto found = mInt64.find(key);
        if (found == mInt64.end()) return false;
        *value = found->second;
        return true;
    }

  private:
    std::map<uint32_t, int32_t> mInt32;
    std::map<uint32_t, int64_t> mInt64;
};

class MetaData : public MetaDataBase, public RefBase {};

}  // namespace android

#endif  // HOST_META_DATA_BASE_H
