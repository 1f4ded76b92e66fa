// Fuzz targets format every log line (so a bad format argument is found) but print none of them:
// millions of executions would otherwise spend their time writing to stderr.
#pragma once

#include <android/log.h>

namespace wws_fuzz {

inline void silenceLogs() {
    __android_log_set_logger([](const struct __android_logger_data*, const char*) {});
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

}  // namespace wws_fuzz
