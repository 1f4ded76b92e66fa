#define LOG_TAG "WakeWordService"

#include "WakeWordModelJson.h"

#include <log/log.h>
#include <rapidjson/encodedstream.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>
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

namespace {

// Copies a JSON document event by event into a compact writer and adds "betaEnabled":true as the
// root object's last member. Numbers pass through as the text they were written as: a parse into
// doubles and back could change a caller's number in its last digit.
class BetaEnabledAppender
    : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, BetaEnabledAppender> {
  public:
    explicit BetaEnabledAppender(rapidjson::Writer<rapidjson::StringBuffer>& writer)
        : mWriter(writer) {}

    bool rootIsObject() const { return mRootIsObject; }

    bool Null() { return root(false) && mWriter.Null(); }
    bool Bool(bool b) { return root(false) && mWriter.Bool(b); }
    // Writer::RawNumber() would quote the text in this rapidjson version; RawValue() does not.
    bool RawNumber(const char* text, rapidjson::SizeType length, bool /*copy*/) {
        return root(false) && mWriter.RawValue(text, length, rapidjson::kNumberType);
    }
    bool String(const char* text, rapidjson::SizeType length, bool copy) {
        return root(false) && mWriter.String(text, length, copy);
    }
    bool Key(const char* text, rapidjson::SizeType length, bool copy) {
        return mWriter.Key(text, length, copy);
    }
    bool StartObject() {
        if (!root(true)) return false;
        ++mDepth;
        return mWriter.StartObject();
    }
    bool EndObject(rapidjson::SizeType members) {
        if (--mDepth == 0) {
            if (!mWriter.Key("betaEnabled") || !mWriter.Bool(true)) return false;
            ++members;
        }
        return mWriter.EndObject(members);
    }
    bool StartArray() {
        if (!root(false)) return false;
        ++mDepth;
        return mWriter.StartArray();
    }
    bool EndArray(rapidjson::SizeType elements) {
        --mDepth;
        return mWriter.EndArray(elements);
    }

  private:
    // The first value decides: anything but an object at the root ends the copy.
    bool root(bool isObject) {
        if (mSeenRoot) return true;
        mSeenRoot = true;
        mRootIsObject = isObject;
        return isObject;
    }

    rapidjson::Writer<rapidjson::StringBuffer>& mWriter;
    int mDepth = 0;
    bool mSeenRoot = false;
    bool mRootIsObject = false;
};

}  // namespace

std::string generateBetaEnabledJson(const std::string& json) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    BetaEnabledAppender appender(writer);
    rapidjson::Reader reader;
    // The stream Document::Parse(text, length) reads through, so that exactly the same texts are
    // accepted (it skips a byte-order mark).
    rapidjson::MemoryStream bytes(json.data(), json.size());
    rapidjson::EncodedInputStream<rapidjson::UTF8<>, rapidjson::MemoryStream> input(bytes);
    rapidjson::ParseResult parsed =
            reader.Parse<rapidjson::kParseNumbersAsStringsFlag>(input, appender);
    if (parsed.IsError() || !appender.rootIsObject()) {
        ALOGE("Error parsing JSON for betaEnabled");
        return json;
    }
    return std::string(buffer.GetString(), buffer.GetSize());
}

}  // namespace velmar
