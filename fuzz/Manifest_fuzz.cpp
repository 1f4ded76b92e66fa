// Any text as a model-set manifest of the PocketSphinx engine. Parsing either fails with a one-line
// reason that names the manifest, or yields what the format promises: keywords with a name, a
// phrase of lower-case words separated by single spaces and a threshold above zero; pronunciations
// with a lower-case word and upper-case phones; a detection delay within its bounds.
#include <Manifest.h>

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "FuzzLog.h"

namespace {

constexpr const char* kPath = "/models/fuzz.manifest";

void require(bool condition, const char* what) {
    if (!condition) {
        __builtin_fprintf(stderr, "fuzz check failed: %s\n", what);
        abort();
    }
}

// Words of the given case separated by exactly one space, no space at either end.
bool spacedWords(const std::string& text, bool upper) {
    if (text.empty() || text.front() == ' ' || text.back() == ' ') return false;
    for (size_t i = 0; i < text.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == ' ') {
            if (text[i + 1] == ' ') return false;
        } else if (std::isspace(c) || (upper ? std::islower(c) : std::isupper(c))) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    wws_fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    norvo_ps::Manifest manifest;
    std::string error;
    const NorvoStatus status = norvo_ps::Manifest::parse(kPath, text, &manifest, &error);
    if (status != NORVO_SUCCESS) {
        require(error.rfind(std::string(kPath) + ":", 0) == 0, "the reason names the manifest");
        require(error.find('\n') == std::string::npos, "the reason is one line");
        return 0;
    }
    for (const norvo_ps::ManifestKeyword& keyword : manifest.keywords()) {
        require(!keyword.name.empty(), "every keyword has a name");
        for (char c : keyword.name) {
            require(std::isupper(static_cast<unsigned char>(c)) ||
                            std::isdigit(static_cast<unsigned char>(c)) || c == '_',
                    "names are upper-case letters, digits and underscores");
        }
        require(spacedWords(keyword.phrase, false), "phrases are lower-case words, single-spaced");
        require(keyword.threshold > 0, "thresholds are above zero");
        require(keyword.line >= 1, "keywords know their line");
    }
    for (const norvo_ps::ManifestPronunciation& pronunciation : manifest.pronunciations()) {
        require(spacedWords(pronunciation.word, false) &&
                        pronunciation.word.find(' ') == std::string::npos,
                "pronounced words are single lower-case words");
        require(spacedWords(pronunciation.phones, true), "phones are upper case, single-spaced");
    }
    require(manifest.detectionDelayFrames() >= 0 &&
                    manifest.detectionDelayFrames() <= norvo_ps::Manifest::kMaxDetectionDelayFrames,
            "the detection delay is within its bounds");
    return 0;
}
