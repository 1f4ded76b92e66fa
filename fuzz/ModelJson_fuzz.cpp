// The keyword-list and beta-enabled JSON builders. Beyond not crashing, each output must say what
// it was given: the keyword list parses back to exactly the keywords (escaping is right for any
// bytes), and "betaEnabled":true is appended to an object whose members all stay as they were, or
// the input comes back unchanged when it is not an object.
#include <WakeWordModelJson.h>
#include <rapidjson/document.h>
#include <rapidjson/pointer.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "FuzzLog.h"

namespace {

void require(bool condition, const char* what) {
    if (!condition) {
        __builtin_fprintf(stderr, "fuzz check failed: %s\n", what);
        abort();
    }
}

// Keywords are the input split at NUL bytes (at most 16 of them).
std::vector<std::string> splitKeywords(const std::string& input) {
    std::vector<std::string> keywords;
    size_t start = 0;
    while (keywords.size() < 16) {
        size_t end = input.find('\0', start);
        keywords.push_back(input.substr(start, end == std::string::npos ? end : end - start));
        if (end == std::string::npos) break;
        start = end + 1;
    }
    return keywords;
}

void checkKeywordList(const std::string& input) {
    const std::vector<std::string> keywords = splitKeywords(input);
    const std::string json = velmar::generateKeywordListJson(keywords);
    rapidjson::Document parsed;
    parsed.Parse(json.c_str(), json.size());
    require(!parsed.HasParseError(), "keyword list is valid JSON");
    const rapidjson::Value* list = rapidjson::Pointer("/keyword/enabled-keyword-list").Get(parsed);
    require(list != nullptr && list->IsArray(), "keyword list has its array");
    require(list->Size() == keywords.size(), "every keyword is listed");
    for (rapidjson::SizeType i = 0; i < list->Size(); ++i) {
        const rapidjson::Value& item = (*list)[i];
        require(item.IsString(), "keywords are strings");
        require(std::string(item.GetString(), item.GetStringLength()) == keywords[i],
                "keywords come back byte for byte");
    }
}

// Equal values, object members compared in order. rapidjson's own == looks members up by name,
// which fails an object that repeats a name with another value (JSON allows it; the copy keeps
// both).
bool sameInOrder(const rapidjson::Value& a, const rapidjson::Value& b) {
    if (a.GetType() != b.GetType()) return false;
    if (a.IsObject()) {
        if (a.MemberCount() != b.MemberCount()) return false;
        for (auto x = a.MemberBegin(), y = b.MemberBegin(); x != a.MemberEnd(); ++x, ++y) {
            if (x->name != y->name || !sameInOrder(x->value, y->value)) return false;
        }
        return true;
    }
    if (a.IsArray()) {
        if (a.Size() != b.Size()) return false;
        for (rapidjson::SizeType i = 0; i < a.Size(); ++i) {
            if (!sameInOrder(a[i], b[i])) return false;
        }
        return true;
    }
    return a == b;
}

void checkBetaEnabled(const std::string& input) {
    const std::string output = velmar::generateBetaEnabledJson(input);
    // Default precision on purpose: rapidjson 1.1's full-precision parse reads "0e-25" as
    // garbage. The same number text parses to the same double, which is what is compared.
    rapidjson::Document original;
    original.Parse(input.c_str(), input.size());
    if (original.HasParseError() || !original.IsObject()) {
        require(output == input, "input that is not an object comes back unchanged");
        return;
    }
    rapidjson::Document result;
    result.Parse(output.c_str(), output.size());
    require(!result.HasParseError() && result.IsObject(), "output is a JSON object");
    require(result.MemberCount() == original.MemberCount() + 1, "one member is added");
    auto kept = result.MemberBegin();
    for (auto& member : original.GetObject()) {
        require(kept->name == member.name && sameInOrder(kept->value, member.value),
                "the original members are kept in order");
        ++kept;
    }
    require(kept->name == "betaEnabled" && kept->value.IsTrue(), "betaEnabled:true comes last");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    wws_fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    checkKeywordList(input);
    checkBetaEnabled(input);
    return 0;
}
