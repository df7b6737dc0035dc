#pragma once

#include <aidl/android/hardware/audio/common/SourceMetadata.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "audio/hal/audio/router/routing_graph.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** What is known of one playback usecase. */
struct PlaybackUsecaseState {
    std::string usecase;
    bool in_routing_graph = false;  // It plays on the phone's own loudspeaker.
    int32_t active_tracks = 0;      // Those of a loud usage.
};

/**
 * Decides whether the DSP needs echo cancellation: while the phone's own loudspeaker plays what the
 * microphones hear. Talks to nobody; its owner tells it what changes, and guards it.
 */
class PlaybackUsecases {
  public:
    using SourceMetadata = ::aidl::android::hardware::audio::common::SourceMetadata;

    PlaybackUsecases();

    /** Takes over what the whole routing graph says. */
    void SetRouting(const audio::router::RoutingGraph& graph);

    /**
     * Takes over the tracks of a playback stream. Returns how many are of a loud usage; nothing,
     * and keeps nothing, for a usecase that its tracks do not decide.
     */
    std::optional<int32_t> SetTracks(std::string_view usecase, const SourceMetadata& metadata);

    bool WantsEchoCancellation() const;

  private:
    PlaybackUsecaseState* Find(std::string_view usecase);

    std::array<PlaybackUsecaseState, 4> usecases_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
