// The engine-facing identifiers this service uses: model-set ids, decoder ids and keyword-set
// names. The engine addresses everything by these strings.
#ifndef VELMAR_NORVO_IDS_H
#define VELMAR_NORVO_IDS_H

namespace velmar {

constexpr const char* kWakeWordModelSetId = "WakeWordService_modelset";
constexpr const char* kNttModelSetId = "WakeWordService_ntt_modelset";
constexpr const char* kAudioPresenceModelSetId = "AudioPresenceNorvo_modelset";
constexpr const char* kPmaModelSetId = "WakeWordService_pma_modelset";

constexpr const char* kInputDecoderId = "WakeWordService_input_decoder";
constexpr const char* kPlaybackDecoderId = "WakeWordService_playback_decoder";
constexpr const char* kAudioPresenceDecoderId = "WakeWordService_audiopresence_decoder";
constexpr const char* kNttDecoderId = "wws_ntt";
constexpr const char* kPmaDecoderId = "wws_pma";

// Keyword-set names given at decoder creation; "norvo" is also the wake-word model's id in the
// model attributes.
constexpr const char* kNorvoKeywordSet = "norvo";
constexpr const char* kPlaybackKeywordSet = "playback";

}  // namespace velmar

#endif  // VELMAR_NORVO_IDS_H
