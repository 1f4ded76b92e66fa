// The PocketSphinx keyword-spotting engine: its own status codes and a small control interface for
// tests, benchmarks and host tools. The service never includes this header; it sees the engine only
// through <norvo/NorvoApi.h>.
//
// Status codes. 0 (NORVO_SUCCESS) is success. This engine never returns 1 (NORVO_ERROR_FATAL): a
// caller that treats 1 as fatal aborts on it, and nothing this engine can run into warrants that.
// Every other failure is recoverable and named below; each is also explained by one log line
// through the registered logging callback (level 2 error or 3 warning).
#ifndef NORVO_PS_NORVO_PS_H
#define NORVO_PS_NORVO_PS_H

#include <norvo/NorvoApi.h>

#include <cstdint>
#include <map>
#include <string>

// A null id, path or record where one is required; a decoder configuration that is not the JSON
// this engine reads; an empty enabled-keyword list.
#define NORVO_PS_INVALID_ARGUMENT 2
// No model set or decoder has that id.
#define NORVO_PS_NOT_FOUND 3
// The id is taken by a live model set or decoder.
#define NORVO_PS_ALREADY_EXISTS 4
// The model set still has decoders; delete them first.
#define NORVO_PS_IN_USE 5
// The manifest, or a file or folder it names, cannot be read.
#define NORVO_PS_MANIFEST_UNREADABLE 6
// A manifest line is malformed, or a required line is missing.
#define NORVO_PS_MANIFEST_MALFORMED 7
// A phrase word is not in the dictionary, or a pronunciation uses a phone the model lacks.
#define NORVO_PS_UNKNOWN_WORD 8
// PocketSphinx could not load the acoustic model or build the keyword search.
#define NORVO_PS_MODEL_LOAD_FAILED 9
// An enabled keyword is not defined by the model set, or the keyword-set name is unknown.
#define NORVO_PS_UNKNOWN_KEYWORD 10
// An operation or decoder kind this engine does not implement: audio-event (multichannel) and
// PCM decoders, NTT configuration and events, fingerprint databases, AED custom sounds.
#define NORVO_PS_UNSUPPORTED 11
// The decoder's audio format is not 16 kHz, 16-bit, 1 to 8 channels.
#define NORVO_PS_UNSUPPORTED_AUDIO_FORMAT 12
// An audio event that is not type "samples" with a metadata JSON carrying "sample_count" and
// "first_sample_index", whose count is not a multiple of the channel count, or without samples.
#define NORVO_PS_BAD_AUDIO_EVENT 13
// The decoder's audio queue was full: some or all of the pushed frames were dropped (counted in
// DecoderStats::droppedFrames and logged by the decoder thread).
#define NORVO_PS_QUEUE_FULL 14
// Every decoder slot of the engine is in use.
#define NORVO_PS_TOO_MANY_DECODERS 15

namespace norvo_ps {

// Counters of one decoder since its creation.
struct DecoderStats {
    uint64_t queuedFrames = 0;    // frames accepted by NorvoDecoder_PushAudioEvent
    uint64_t decodedFrames = 0;   // frames the decoder thread has fed to the recognizer
    uint64_t droppedFrames = 0;   // frames refused because the queue was full
    uint64_t overflowPushes = 0;  // pushes that dropped frames
    uint64_t restarts = 0;        // recognizer restarts (after detections, periodic, gaps)
    uint64_t detections = 0;      // results delivered (wake words and local commands)
    uint64_t decodeCpuNs = 0;     // decoder-thread CPU time spent decoding
    int threadId = 0;             // kernel thread id of the decoder thread
};

// Waits until everything pushed to the decoder before this call has been decoded and every
// result from it delivered to the callbacks. False on timeout or when no such decoder exists.
bool waitUntilDecoded(const std::string& decoderId, int timeoutMs);

// False when no such decoder exists.
bool decoderStats(const std::string& decoderId, DecoderStats* out);

// The client events pushed for a decoder id (latest value per name), kept whether or not the
// decoder exists.
std::map<std::string, int64_t> clientEvents(const std::string& decoderId);

// The configuration the engine was last given through NorvoApi_SetClientLookaheadMetadata and
// NorvoApi_SetLocalTimeOffset.
std::string lookaheadMetadata();
int32_t localTimeOffset();

}  // namespace norvo_ps

#endif  // NORVO_PS_NORVO_PS_H
