#pragma once

#include <string_view>

// Names of audio devices: the sinks in a routing graph.
namespace vendor::quarno::brindlecove::audio::hal::utils {

inline constexpr std::string_view kSpeaker = "speaker";
inline constexpr std::string_view kUsbDock = "usb-dock";
inline constexpr std::string_view kSpeakerSafe = "speaker-safe";
inline constexpr std::string_view kSpeakerEarpiece = "speaker-earpiece";

}  // namespace vendor::quarno::brindlecove::audio::hal::utils
