#include "audio/hal/utils/soundcardstate/sound_card_state.h"

#include <algorithm>

namespace vendor::quarno::brindlecove::audio::hal::utils::soundcardstate {

bool SoundCardState::RegisterListener(SoundCardStateListener* listener) {
    if (listener == nullptr) return false;
    std::lock_guard lock(lock_);
    if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end()) return false;
    listeners_.push_back(listener);
    return true;
}

void SoundCardState::UnregisterListener(SoundCardStateListener* listener) {
    std::lock_guard report(report_lock_);
    std::lock_guard lock(lock_);
    std::erase(listeners_, listener);
}

bool SoundCardState::IsOnline() const {
    std::lock_guard lock(lock_);
    return is_online_;
}

void SoundCardState::Report(bool online) {
    std::lock_guard report(report_lock_);
    std::vector<SoundCardStateListener*> listeners;
    {
        std::lock_guard lock(lock_);
        is_online_ = online;
        listeners = listeners_;
    }
    // Without lock_, since a listener may ask for the state. The copy holds no listener that is
    // gone: removing one takes report_lock_.
    for (SoundCardStateListener* listener : listeners) listener->OnSoundCardStateChanged(online);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::soundcardstate
