#pragma once

#include <string_view>

// Names of audio usecases: the sources in a routing graph.
namespace vendor::quarno::brindlecove::audio::hal::utils {

inline constexpr std::string_view kPrimaryPlayback = "primary-playback";
inline constexpr std::string_view kDeepBufferPlayback = "deep-buffer-playback";
inline constexpr std::string_view kCompressOffloadPlayback = "compress-offload-playback";
inline constexpr std::string_view kHapticPlayback = "haptic-playback";

}  // namespace vendor::quarno::brindlecove::audio::hal::utils
