#include "Manifest.h"

#include <norvo_ps/NorvoPs.h>

#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace norvo_ps {

namespace {

std::vector<std::string> splitFields(const std::string& line) {
    std::vector<std::string> fields;
    std::istringstream in(line);
    std::string field;
    while (in >> field) fields.push_back(field);
    return fields;
}

std::string trim(const std::string& text) {
    size_t begin = text.find_first_not_of(" \t\r");
    if (begin == std::string::npos) return "";
    size_t end = text.find_last_not_of(" \t\r");
    return text.substr(begin, end - begin + 1);
}

// Everything after the directive, so that paths may contain spaces.
std::string restOfLine(const std::string& line, const std::string& directive) {
    std::string stripped = trim(line);
    return trim(stripped.substr(directive.size()));
}

bool isKeywordName(const std::string& name) {
    if (name.empty() || !std::isupper(static_cast<unsigned char>(name[0]))) return false;
    for (char c : name) {
        if (!std::isupper(static_cast<unsigned char>(c)) &&
            !std::isdigit(static_cast<unsigned char>(c)) && c != '_') {
            return false;
        }
    }
    return true;
}

// Dictionary words are lower case; '/' would end a phrase in the recognizer's keyword list.
bool isWord(const std::string& word) {
    if (word.empty()) return false;
    for (char c : word) {
        if (!std::islower(static_cast<unsigned char>(c)) &&
            !std::isdigit(static_cast<unsigned char>(c)) && std::strchr("'._-", c) == nullptr) {
            return false;
        }
    }
    return true;
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

std::string upper(std::string text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

NorvoStatus Manifest::load(const std::string& path, Manifest* out, std::string* error) {
    std::ifstream file(path);
    if (!file) {
        *error = "cannot read manifest '" + path + "': " + std::strerror(errno);
        return NORVO_PS_MANIFEST_UNREADABLE;
    }
    std::stringstream text;
    text << file.rdbuf();
    if (file.bad()) {
        *error = "cannot read manifest '" + path + "': read error";
        return NORVO_PS_MANIFEST_UNREADABLE;
    }
    return parse(path, text.str(), out, error);
}

NorvoStatus Manifest::parse(const std::string& path, const std::string& text, Manifest* out,
                            std::string* error) {
    Manifest manifest;
    manifest.mPath = path;
    size_t slash = path.rfind('/');
    manifest.mFolder = slash == std::string::npos ? "." : path.substr(0, slash == 0 ? 1 : slash);

    std::istringstream lines(text);
    std::string line;
    int number = 0;
    while (std::getline(lines, line)) {
        ++number;
        std::vector<std::string> fields = splitFields(line);
        if (fields.empty() || fields[0][0] == '#') continue;
        // Paths keep their spaces: the parser sees the rest of the line as one field.
        if (fields[0] == "acoustic-model" || fields[0] == "dictionary") {
            std::string rest = restOfLine(line, fields[0]);
            fields.resize(1);
            if (!rest.empty()) fields.push_back(rest);
        }
        NorvoStatus status = manifest.parseLine(number, fields, error);
        if (status != NORVO_SUCCESS) return status;
    }
    if (manifest.mAcousticModel.empty()) {
        *error = path + ": no 'acoustic-model' line";
        return NORVO_PS_MANIFEST_MALFORMED;
    }
    if (manifest.mDictionary.empty()) {
        *error = path + ": no 'dictionary' line";
        return NORVO_PS_MANIFEST_MALFORMED;
    }
    bool anyWake = false;
    for (const ManifestKeyword& keyword : manifest.mKeywords) anyWake |= !keyword.command;
    if (!anyWake) {
        *error = path + ": no 'wake' line (a model set needs at least one wake phrase)";
        return NORVO_PS_MANIFEST_MALFORMED;
    }
    *out = std::move(manifest);
    return NORVO_SUCCESS;
}

std::string Manifest::where(int line) const {
    return mPath + ":" + std::to_string(line) + ": ";
}

std::string Manifest::resolve(const std::string& file) const {
    if (!file.empty() && file[0] == '/') return file;
    return mFolder + "/" + file;
}

NorvoStatus Manifest::parseCount(int line, const std::vector<std::string>& fields,
                                 const char* unit, int max, bool* given, int* value,
                                 std::string* error) const {
    char* end = nullptr;
    long count = fields.size() == 2 ? std::strtol(fields[1].c_str(), &end, 10) : -1;
    if (fields.size() != 2 || *end != '\0' || count < 0 || count > max) {
        *error = where(line) + "'" + fields[0] + "' needs a whole number of " + unit +
                 " from 0 to " + std::to_string(max);
        return NORVO_PS_MANIFEST_MALFORMED;
    }
    if (*given) {
        *error = where(line) + "'" + fields[0] + "' is given twice";
        return NORVO_PS_MANIFEST_MALFORMED;
    }
    *given = true;
    *value = static_cast<int>(count);
    return NORVO_SUCCESS;
}

NorvoStatus Manifest::parseLine(int line, const std::vector<std::string>& fields,
                                std::string* error) {
    const std::string& directive = fields[0];
    if (directive == "acoustic-model" || directive == "dictionary") {
        bool model = directive == "acoustic-model";
        int& given = model ? mAcousticModelLine : mDictionaryLine;
        if (fields.size() != 2) {
            *error = where(line) + "'" + directive + "' needs " + (model ? "a folder" : "a file");
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        if (given != 0) {
            *error = where(line) + "'" + directive + "' is already given on line " +
                     std::to_string(given);
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        given = line;
        (model ? mAcousticModel : mDictionary) = resolve(fields[1]);
        return NORVO_SUCCESS;
    }

    if (directive == "wake" || directive == "command") {
        if (fields.size() < 4) {
            *error = where(line) + "'" + directive +
                     "' needs a name, a threshold and at least one word";
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        ManifestKeyword keyword;
        keyword.name = fields[1];
        keyword.thresholdText = fields[2];
        keyword.command = directive == "command";
        keyword.line = line;
        if (!isKeywordName(keyword.name)) {
            *error = where(line) + "keyword name '" + keyword.name +
                     "' must be upper-case letters, digits and '_'";
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        char* end = nullptr;
        errno = 0;
        keyword.threshold = std::strtod(keyword.thresholdText.c_str(), &end);
        if (errno != 0 || end == keyword.thresholdText.c_str() || *end != '\0' ||
            !std::isfinite(keyword.threshold) || keyword.threshold <= 0) {
            *error = where(line) + "threshold '" + keyword.thresholdText +
                     "' must be a number above 0 (e.g. 1e-20)";
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        for (size_t i = 3; i < fields.size(); ++i) {
            std::string word = lower(fields[i]);
            if (!isWord(word)) {
                *error = where(line) + "word '" + fields[i] +
                         "' may hold only letters, digits and ' . _ -";
                return NORVO_PS_MANIFEST_MALFORMED;
            }
            keyword.phrase += (i == 3 ? "" : " ") + word;
        }
        for (const ManifestKeyword& other : mKeywords) {
            if (other.name == keyword.name) {
                *error = where(line) + "keyword '" + keyword.name +
                         "' is already defined on line " + std::to_string(other.line);
                return NORVO_PS_MANIFEST_MALFORMED;
            }
            // The recognizer names a detection by its phrase: two keywords cannot share one.
            if (other.phrase == keyword.phrase) {
                *error = where(line) + "phrase '" + keyword.phrase + "' is already used by '" +
                         other.name + "' on line " + std::to_string(other.line);
                return NORVO_PS_MANIFEST_MALFORMED;
            }
        }
        mKeywords.push_back(std::move(keyword));
        return NORVO_SUCCESS;
    }

    if (directive == "pronounce") {
        if (fields.size() < 3) {
            *error = where(line) + "'pronounce' needs a word and at least one phone";
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        ManifestPronunciation pronunciation;
        pronunciation.word = lower(fields[1]);
        pronunciation.line = line;
        if (!isWord(pronunciation.word)) {
            *error = where(line) + "word '" + fields[1] +
                     "' may hold only letters, digits and ' . _ -";
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        for (const ManifestPronunciation& other : mPronunciations) {
            if (other.word == pronunciation.word) {
                *error = where(line) + "pronunciation of '" + pronunciation.word +
                         "' is already given on line " + std::to_string(other.line);
                return NORVO_PS_MANIFEST_MALFORMED;
            }
        }
        for (size_t i = 2; i < fields.size(); ++i) {
            pronunciation.phones += (i == 2 ? "" : " ") + upper(fields[i]);
        }
        mPronunciations.push_back(std::move(pronunciation));
        return NORVO_SUCCESS;
    }

    if (directive == "detection-delay") {
        return parseCount(line, fields, "frames", kMaxDetectionDelayFrames, &mDelayGiven,
                          &mDetectionDelayFrames, error);
    }
    if (directive == "command-pause") {
        return parseCount(line, fields, "milliseconds", kMaxCommandPauseMs, &mCommandPauseGiven,
                          &mCommandPauseMs, error);
    }

    if (directive == "frequency-warp") {
        char* end = nullptr;
        double factor = fields.size() == 2 ? std::strtod(fields[1].c_str(), &end) : 0;
        if (fields.size() != 2 || *end != '\0' || !(factor >= kMinFrequencyWarp) ||
            !(factor <= kMaxFrequencyWarp)) {
            *error = where(line) + "'frequency-warp' needs a factor from 0.8 to 1.25";
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        if (mWarpGiven) {
            *error = where(line) + "'frequency-warp' is given twice";
            return NORVO_PS_MANIFEST_MALFORMED;
        }
        mWarpGiven = true;
        mFrequencyWarp = factor;
        return NORVO_SUCCESS;
    }

    *error = where(line) + "unknown directive '" + directive +
             "' (expected acoustic-model, dictionary, wake, command, pronounce, "
             "detection-delay, command-pause or frequency-warp)";
    return NORVO_PS_MANIFEST_MALFORMED;
}

}  // namespace norvo_ps
