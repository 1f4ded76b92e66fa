// JSON helpers of the wake-word model set: reading the engine's model attributes and writing the
// keyword decoders' configuration. Pure functions; safe on any thread.
#ifndef VELMAR_WAKE_WORD_MODEL_JSON_H
#define VELMAR_WAKE_WORD_MODEL_JSON_H

#include <rapidjson/document.h>

#include <string>
#include <vector>

namespace velmar {

// The engine's ModelSetAttributesCallback: copies json into the android::String8 at userData
// (a null json gives the empty string).
void modelSetAttributesCallback(const char* json, void* userData);

// True when some string element of array equals value exactly (same length, same bytes).
// Elements that are not strings never match.
bool findValueInArray(const rapidjson::GenericArray<true, rapidjson::Value>& array,
                      const std::string& value);

// {"keyword":{"enabled-keyword-list":[...]}}, compact; keywords are escaped as JSON strings.
std::string generateKeywordListJson(const std::vector<std::string>& keywords);

// json with "betaEnabled":true appended to its root object, compact. When json does not parse (or
// its root is not an object) logs "Error parsing JSON for betaEnabled" and returns json unchanged.
std::string generateBetaEnabledJson(const std::string& json);

}  // namespace velmar

#endif  // VELMAR_WAKE_WORD_MODEL_JSON_H
