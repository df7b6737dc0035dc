#pragma once

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

// Nodes that must be there for what follows are waited for: while the DSP restarts they vanish for
// some tenths of a second. Ten attempts, 50 ms apart.
inline constexpr int kOpenAttempts = 10;
inline constexpr int kOpenDelayUs = 50'000;

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
