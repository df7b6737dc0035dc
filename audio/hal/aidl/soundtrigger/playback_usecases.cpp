#include "audio/hal/aidl/soundtrigger/playback_usecases.h"

#include <aidl/android/media/audio/common/AudioUsage.h>

#include <algorithm>

#include "audio/hal/utils/constants/devices.h"
#include "audio/hal/utils/constants/usecases.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using ::aidl::android::media::audio::common::AudioUsage;

// The usages that the loudspeaker plays loud enough for the microphones.
bool IsLoud(AudioUsage usage) {
    return usage == AudioUsage::MEDIA || usage == AudioUsage::ALARM ||
           usage == AudioUsage::NOTIFICATION_TELEPHONY_RINGTONE || usage == AudioUsage::GAME ||
           usage == AudioUsage::ASSISTANT;
}

bool IsOwnLoudspeaker(std::string_view device) {
    return device == utils::kSpeaker || device == utils::kUsbDock ||
           device == utils::kSpeakerSafe || device == utils::kSpeakerEarpiece;
}

// These usecases play while they have a track of a loud usage; the others, whenever they are
// routed.
bool IsDecidedByTracks(std::string_view usecase) {
    return usecase == utils::kPrimaryPlayback || usecase == utils::kHapticPlayback;
}

}  // namespace

PlaybackUsecases::PlaybackUsecases()
    : usecases_{
              PlaybackUsecaseState{std::string(utils::kPrimaryPlayback)},
              PlaybackUsecaseState{std::string(utils::kDeepBufferPlayback)},
              PlaybackUsecaseState{std::string(utils::kCompressOffloadPlayback)},
              PlaybackUsecaseState{std::string(utils::kHapticPlayback)},
      } {}

void PlaybackUsecases::SetRouting(const audio::router::RoutingGraph& graph) {
    bool matched = false;
    for (const auto& edge : graph.edges) {
        PlaybackUsecaseState* const playback = Find(edge.source);
        if (playback == nullptr || !IsOwnLoudspeaker(edge.sink)) continue;
        playback->in_routing_graph = true;
        matched = true;
    }
    // On purpose, a usecase that is not in the graph stays routed while another one is: only a
    // graph without any match clears, and it clears all of them.
    if (matched) return;
    for (PlaybackUsecaseState& playback : usecases_) playback.in_routing_graph = false;
}

std::optional<int32_t> PlaybackUsecases::SetTracks(std::string_view usecase,
                                                   const SourceMetadata& metadata) {
    if (!IsDecidedByTracks(usecase)) return std::nullopt;
    const auto active_tracks = std::count_if(metadata.tracks.begin(), metadata.tracks.end(),
                                             [](const auto& track) { return IsLoud(track.usage); });
    return Find(usecase)->active_tracks = static_cast<int32_t>(active_tracks);
}

bool PlaybackUsecases::WantsEchoCancellation() const {
    return std::any_of(usecases_.begin(), usecases_.end(), [](const auto& playback) {
        return playback.in_routing_graph &&
               (playback.active_tracks > 0 || !IsDecidedByTracks(playback.usecase));
    });
}

PlaybackUsecaseState* PlaybackUsecases::Find(std::string_view usecase) {
    const auto found = std::find_if(usecases_.begin(), usecases_.end(), [&](const auto& playback) {
        return playback.usecase == usecase;
    });
    return found == usecases_.end() ? nullptr : &*found;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
