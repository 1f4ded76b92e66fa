#include "DecoderTable.h"

#include <thread>

namespace norvo_ps {

DecoderTable::Slot* DecoderTable::findLive_l(const std::string& id) {
    for (Slot& slot : mSlots) {
        if (slot.state.load(std::memory_order_relaxed) == kLive && slot.id == id) return &slot;
    }
    return nullptr;
}

NorvoStatus DecoderTable::insert(const std::shared_ptr<SpotterDecoder>& decoder) {
    std::lock_guard<std::mutex> guard(mControl);
    if (findLive_l(decoder->id()) != nullptr) return NORVO_PS_ALREADY_EXISTS;
    for (Slot& slot : mSlots) {
        if (slot.state.load(std::memory_order_relaxed) != kFree) continue;
        slot.id = decoder->id();
        slot.decoder = decoder;
        // Publishes id and decoder to the audio threads that see the slot live.
        slot.state.store(kLive, std::memory_order_release);
        return NORVO_SUCCESS;
    }
    return NORVO_PS_TOO_MANY_DECODERS;
}

std::shared_ptr<SpotterDecoder> DecoderTable::remove(const std::string& id) {
    std::lock_guard<std::mutex> guard(mControl);
    Slot* slot = findLive_l(id);
    if (slot == nullptr) return nullptr;
    slot->state.store(kDying, std::memory_order_seq_cst);
    // A push in progress copies at most one event into the queue: this wait is short, and it is
    // what guarantees that no audio thread still holds the decoder once it leaves the table.
    while (slot->users.load(std::memory_order_seq_cst) != 0) std::this_thread::yield();
    std::shared_ptr<SpotterDecoder> decoder = std::move(slot->decoder);
    slot->decoder.reset();
    slot->id.clear();
    slot->state.store(kFree, std::memory_order_release);
    return decoder;
}

std::shared_ptr<SpotterDecoder> DecoderTable::find(const std::string& id) {
    std::lock_guard<std::mutex> guard(mControl);
    Slot* slot = findLive_l(id);
    return slot == nullptr ? nullptr : slot->decoder;
}

bool DecoderTable::contains(const std::string& id) {
    std::lock_guard<std::mutex> guard(mControl);
    return findLive_l(id) != nullptr;
}

bool DecoderTable::usesModelSet(const std::string& modelSetId) {
    std::lock_guard<std::mutex> guard(mControl);
    for (Slot& slot : mSlots) {
        if (slot.state.load(std::memory_order_relaxed) == kLive &&
            slot.decoder->modelSetId() == modelSetId) {
            return true;
        }
    }
    return false;
}

std::vector<std::shared_ptr<SpotterDecoder>> DecoderTable::all() {
    std::lock_guard<std::mutex> guard(mControl);
    std::vector<std::shared_ptr<SpotterDecoder>> decoders;
    for (Slot& slot : mSlots) {
        if (slot.state.load(std::memory_order_relaxed) == kLive) decoders.push_back(slot.decoder);
    }
    return decoders;
}

}  // namespace norvo_ps
