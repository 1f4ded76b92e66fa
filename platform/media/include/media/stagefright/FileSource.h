// Host data source over a file path.
#ifndef HOST_FILE_SOURCE_H
#define HOST_FILE_SOURCE_H

#include <utils/Errors.h>
#include <utils/RefBase.h>

#include <string>

namespace android {

class DataSource : public virtual RefBase {
  public:
    virtual status_t initCheck() const = 0;
    // The file behind the source ("" when there is none).
    virtual std::string path() const = 0;
};

class FileSource : public DataSource {
  public:
    // Checks that the file can be opened for reading; the file is read by the extractor.
    explicit FileSource(const char* filename);
    // NO_ERROR, or NAME_NOT_FOUND / PERMISSION_DENIED / BAD_VALUE (null name).
    status_t initCheck() const override { return mStatus; }
    std::string path() const override { return mPath; }

  private:
    std::string mPath;
    status_t mStatus;
};

}  // namespace android

#endif  // HOST_FILE_SOURCE_H
