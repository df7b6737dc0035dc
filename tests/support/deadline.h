#pragma once

#include <chrono>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

// How long a test waits for another thread before it fails. Only a fault ever takes so long.
inline constexpr std::chrono::seconds kDeadline{20};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
