#define LOG_TAG "WakeWordService"

#include "WakeWordModelJson.h"

#include <log/log.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#include <utils/String8.h>

#include <cstring>

namespace velmar {

void modelSetAttributesCallback(const char* json, void* userData) {
    static_cast<android::String8*>(userData)->setTo(json == nullptr ? "" : json);
}

bool findValueInArray(const rapidjson::GenericArray<true, rapidjson::Value>& array,
                      const std::string& value) {
    for (const rapidjson::Value& element : array) {
        if (element.IsString() && element.GetStringLength() == value.size() &&
            memcmp(element.GetString(), value.data(), value.size()) == 0) {
            return true;
        }
    }
    return false;
}

std::string generateKeywordListJson(const std::vector<std::string>& keywords) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    writer.StartObject();
    writer.Key("keyword");
    writer.StartObject();
    writer.Key("enabled-keyword-list");
    writer.StartArray();
    for (const std::string& keyword : keywords) {
        writer.String(keyword.data(), static_cast<rapidjson::SizeType>(keyword.size()));
    }
    writer.EndArray();
    writer.EndObject();
    writer.EndObject();
    return std::string(buffer.GetString(), buffer.GetSize());
}

std::string generateBetaEnabledJson(const std::string& json) {
    rapidjson::Document document;
    // Full precision: the caller's numbers must come out as they went in, not a bit off in their
    // last digit.
    document.Parse<rapidjson::kParseFullPrecisionFlag>(json.c_str(), json.size());
    if (document.HasParseError() || !document.IsObject()) {
        ALOGE("Error parsing JSON for betaEnabled");
        return json;
    }
    document.AddMember("betaEnabled", true, document.GetAllocator());
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace velmar
