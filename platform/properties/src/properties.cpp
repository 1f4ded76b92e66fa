// libcutils' property functions for the host, over libbase's in-process property store (the host
// libcutils does not provide them). Tests set values with android::base::SetProperty.
//
// Like a device's property files, a file named by the environment variable HOST_SYSTEM_PROPERTIES
// ("key=value" lines, '#' comments) is loaded when this library loads, before any library that
// depends on it reads a property in its own static initialisation.
#include <cutils/properties.h>

#include <android-base/properties.h>

#include <cerrno>
#include <fstream>
#include <cinttypes>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct LoadPropertyFile {
    LoadPropertyFile() {
        const char* path = getenv("HOST_SYSTEM_PROPERTIES");
        if (path == nullptr || *path == '\0') return;
        std::ifstream file(path);
        std::string line;
        while (std::getline(file, line)) {
            if (line.empty() || line[0] == '#') continue;
            size_t equals = line.find('=');
            if (equals == std::string::npos || equals == 0) continue;
            android::base::SetProperty(line.substr(0, equals), line.substr(equals + 1));
        }
    }
} gLoadPropertyFile;

}  // namespace

extern "C" {

int property_get(const char* key, char* value, const char* default_value) {
    std::string found;
    if (key != nullptr) found = android::base::GetProperty(key, "");
    if (found.empty() && default_value != nullptr) found = default_value;
    size_t length = std::min(found.size(), static_cast<size_t>(PROPERTY_VALUE_MAX - 1));
    memcpy(value, found.data(), length);
    value[length] = '\0';
    return static_cast<int>(length);
}

int8_t property_get_bool(const char* key, int8_t default_value) {
    if (key == nullptr) return default_value;
    std::string value = android::base::GetProperty(key, "");
    if (value == "1" || value == "true" || value == "y" || value == "yes" || value == "on")
        return 1;
    if (value == "0" || value == "false" || value == "n" || value == "no" || value == "off")
        return 0;
    return default_value;
}

int64_t property_get_int64(const char* key, int64_t default_value) {
    if (key == nullptr) return default_value;
    std::string value = android::base::GetProperty(key, "");
    if (value.empty()) return default_value;
    char* end = nullptr;
    errno = 0;
    intmax_t parsed = strtoimax(value.c_str(), &end, 0);
    if (errno != 0 || end == value.c_str()) return default_value;
    return static_cast<int64_t>(parsed);
}

int32_t property_get_int32(const char* key, int32_t default_value) {
    int64_t value = property_get_int64(key, default_value);
    if (value < INT32_MIN || value > INT32_MAX) return default_value;
    return static_cast<int32_t>(value);
}

int property_set(const char* key, const char* value) {
    if (key == nullptr) return -1;
    return android::base::SetProperty(key, value == nullptr ? "" : value) ? 0 : -1;
}

}  // extern "C"
