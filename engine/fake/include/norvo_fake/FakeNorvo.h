/*
 * Control interface of the scriptable fake engine (libnorvo.so built from engine/fake).
 *
 * Tests and host programs use it to script statuses and model-set attributes, to inspect every
 * engine call with its arguments (strings copied at call time), and to fire registered callbacks
 * either synchronously or from a decoder's own thread, as a real engine does.
 *
 * All functions are thread-safe. None of them holds the fake's lock while it calls back into the
 * client, so callbacks may call engine operations.
 */
#ifndef NORVO_FAKE_FAKE_NORVO_H
#define NORVO_FAKE_FAKE_NORVO_H

#include <norvo/NorvoApi.h>

#include <functional>
#include <string>
#include <vector>

namespace norvo_fake {

// Statuses the fake returns on its own (scripted statuses take precedence). Client events are
// accepted for any decoder id, existing or not: device state is kept per id and applies to a
// decoder created later under that id.
constexpr NorvoStatus kAlreadyExists = 2;  // id already created
constexpr NorvoStatus kNotFound = 3;       // unknown model set or decoder id
constexpr NorvoStatus kInUse = 4;          // model set still has decoders

// Model-set attributes served when none were scripted for a model set.
extern const char* const kDefaultModelSetAttributes;
// Text returned by NorvoApi_GetAttributes unless scripted.
extern const char* const kDefaultLibraryAttributes;

// One recorded engine call. args hold the arguments as text: strings copied ("null" for a null
// pointer), integers in decimal, function pointers as fnText() prints them.
struct Call {
    std::string op;
    std::vector<std::string> args;
};

// Text for a function or data pointer as recorded in Call::args: "null" or "0x<hex>".
std::string ptrText(const void* p);
template <typename F>
std::string fnText(F f) {
    return ptrText(reinterpret_cast<const void*>(f));
}

// Forgets every call, script, model set and decoder (decoder threads are joined) and every
// registered callback. Call it at the start of each test.
void reset();

std::vector<Call> calls();
// Forgets the recorded calls only (model sets, decoders, scripts and callbacks stay): long runs.
void forgetCalls();
// The recorded calls of one operation, in order.
std::vector<Call> callsOf(const std::string& op);
// The operation names of every recorded call, in order.
std::vector<std::string> callNames();

// Every later call of op returns status (and has no effect).
void setStatus(const std::string& op, NorvoStatus status);
// Calls of op whose first argument (a model-set or decoder id) equals id return status.
void setStatus(const std::string& op, const std::string& id, NorvoStatus status);
// Only the next call of op whose first argument equals id returns status (then the script is gone).
void setStatusOnce(const std::string& op, const std::string& id, NorvoStatus status);
void clearStatuses();

void setModelSetAttributes(const std::string& modelSetId, const std::string& json);
void setLibraryAttributes(const std::string& text);

// When true, NorvoDecoder_PushAudioEvent returns 0 at once and does nothing else: no lock, no
// allocation, no record (for measuring the caller's own cost).
void setAudioPushesIgnored(bool ignored);

// When true, NorvoDecoder_PushAudioEvent keeps no record of the call or the samples: it only adds
// each event's sample count to its decoder's tally and checks that every event's first sample
// index continues where the decoder's previous one ended (for long runs at constant memory).
void setAudioPushesCountedOnly(bool counted);
struct PushTally {
    uint64_t events;
    uint64_t samples;
    uint64_t discontinuities;  // events whose first index was not the previous event's end
};
PushTally pushTally(const std::string& decoderId);

// Every sample pushed to a decoder id so far (sample_count samples of each "samples" event), and
// the metadata text of each push, in order. Kept across the decoder's deletion until reset().
std::vector<int16_t> pushedSamples(const std::string& decoderId);
std::vector<std::string> pushedMetadata(const std::string& decoderId);

struct ModelSetInfo {
    std::string manifestPath;
    std::string options;
};
bool modelSet(const std::string& id, ModelSetInfo* out);

struct DecoderInfo {
    std::string kind;  // "spotter", "multichannel" or "pcm16"
    std::string modelSetId;
    std::string keywordSetName;
    std::string config;
    NorvoMultichannelAudioFormat format;
    int threadId;
};
bool decoder(const std::string& id, DecoderInfo* out);
std::vector<std::string> decoderIds();

// The callbacks currently registered (null where none is).
struct Callbacks {
    NorvoLoggingCallback logging;
    NorvoMetricsCallback metrics;
    EnumeratedResult_Callback enumeratedResult;
    LocalCommandEnumeratedResult_Callback localCommand;
    AcousticEventDetectionResult_Callback acousticEvent;
    PresenceDetectionResult_Callback presence;
    NttResult_Callback nttResult;
    NttEndOfSpeech_Callback nttEndOfSpeech;
    Jsondata_Callback jsondata;
    NorvoDmsMetrics_Callback dmsMetrics;
    NorvoDmsQuillanMetrics_Callback dmsQuillanMetrics;
    NorvoFederatedLearning_resultCallback federatedLearning;
    NorvoFederatedLearning_unsecuredResultCallback federatedLearningUnsecured;
    NorvoFederatedLearning_idleDetectionCallback federatedLearningIdle;
};
Callbacks callbacks();

// Runs fn on the decoder's own thread. With wait, returns after fn has run. Returns false when the
// decoder does not exist.
bool runOnDecoderThread(const std::string& decoderId, std::function<void()> fn, bool wait = true);

// The nice value of the decoder's thread as that thread sees it (getpriority on itself), or
// INT32_MIN when the decoder does not exist.
int decoderThreadNice(const std::string& decoderId);

// Scripts a detection: when audio pushed to decoderId contains the sample value trigger, the
// registered enumerated-result callback is called on that decoder's thread with the keyword,
// detection type 0, the trigger's sample index as begin and end, and blob as the result's data.
// Audio pushes must be recorded (the default) for the scan to happen.
void scriptKeyword(const std::string& decoderId, int16_t trigger, const std::string& keyword,
                   const std::vector<uint8_t>& blob);

// Called with the decoder id inside NorvoDecoder_Delete, before the decoder goes away (null to
// remove). Lets tests check what the client had done by the time the engine deletes a decoder.
void setBeforeDecoderDelete(std::function<void(const std::string&)> hook);
// Called with the decoder id inside NorvoDecoder_PushAudioEvent, on the pushing thread, before the
// engine reads the event (null to remove). Lets tests act while a push is under way.
void setBeforeAudioPush(std::function<void(const std::string&)> hook);

// Calls the registered logging callback (if any) on the calling thread, as the engine would.
void emitLog(int level, const std::string& message);

}  // namespace norvo_fake

#endif  // NORVO_FAKE_FAKE_NORVO_H
