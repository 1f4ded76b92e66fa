// The engine's live decoders by id.
//
// Audio threads find a decoder with withDecoder() without taking a lock or allocating: the table
// is a fixed array of slots, each with a state and a count of the audio threads inside it. Control
// operations (insert, remove, find, ...) serialise on the table's own mutex and are never called
// on audio threads. remove() waits until no audio thread is still inside the slot before it hands
// the decoder back, so a decoder removed from the table receives no more audio.
#ifndef NORVO_PS_DECODER_TABLE_H
#define NORVO_PS_DECODER_TABLE_H

#include <norvo/NorvoApi.h>
#include <norvo_ps/NorvoPs.h>

#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "SpotterDecoder.h"

namespace norvo_ps {

class DecoderTable {
  public:
    static constexpr size_t kSlots = 16;

    // Adds a started decoder: 0, NORVO_PS_ALREADY_EXISTS or NORVO_PS_TOO_MANY_DECODERS.
    NorvoStatus insert(const std::shared_ptr<SpotterDecoder>& decoder);
    // Takes the decoder out of the table (null when there is none), once no audio thread is
    // inside its slot any more. The caller stops it.
    std::shared_ptr<SpotterDecoder> remove(const std::string& id);
    std::shared_ptr<SpotterDecoder> find(const std::string& id);
    bool contains(const std::string& id);
    // Whether a live decoder was built on this model set.
    bool usesModelSet(const std::string& modelSetId);
    std::vector<std::shared_ptr<SpotterDecoder>> all();

    // Audio threads: runs fn(decoder) on the live decoder with this id and returns its status;
    // NORVO_PS_NOT_FOUND when there is none. Lock-free and allocation-free.
    template <typename Fn>
    NorvoStatus withDecoder(const char* id, Fn fn) {
        for (Slot& slot : mSlots) {
            if (slot.state.load(std::memory_order_acquire) != kLive) continue;
            // Announce ourselves before checking again: remove() marks the slot dying and then
            // waits for the announcements to drain, so either it sees us or we see it dying.
            slot.users.fetch_add(1, std::memory_order_seq_cst);
            if (slot.state.load(std::memory_order_seq_cst) == kLive && slot.id == id) {
                NorvoStatus status = fn(*slot.decoder);
                slot.users.fetch_sub(1, std::memory_order_seq_cst);
                return status;
            }
            slot.users.fetch_sub(1, std::memory_order_seq_cst);
        }
        return NORVO_PS_NOT_FOUND;
    }

  private:
    enum State { kFree = 0, kLive = 1, kDying = 2 };
    struct Slot {
        std::atomic<int> state{kFree};
        std::atomic<int> users{0};
        // Written only under mControl while the slot is not live; read by audio threads only
        // while it is.
        std::string id;
        std::shared_ptr<SpotterDecoder> decoder;
    };

    Slot* findLive_l(const std::string& id);

    std::mutex mControl;
    Slot mSlots[kSlots];
};

}  // namespace norvo_ps

#endif  // NORVO_PS_DECODER_TABLE_H
