#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace virtual_dsp {

// Detection engines, numbered as in the wire protocol's users.
enum class Engine { kHotword = 1, kAmbientMusic = 2, kAmbientMusicBreak = 3 };

inline constexpr std::array kEngines = {Engine::kHotword, Engine::kAmbientMusic,
                                        Engine::kAmbientMusicBreak};

// The two audio nodes. Both ambient engines are heard through one of them.
enum class PcmPort { kHotword, kAmbient };

inline constexpr std::array kPcmPorts = {PcmPort::kHotword, PcmPort::kAmbient};

constexpr PcmPort PortOf(Engine engine) {
    return engine == Engine::kHotword ? PcmPort::kHotword : PcmPort::kAmbient;
}

inline std::string Name(Engine engine) {
    switch (engine) {
        case Engine::kHotword:
            return "hotword";
        case Engine::kAmbientMusic:
            return "ambient music";
        case Engine::kAmbientMusicBreak:
            return "ambient music break";
    }
    return "unknown";
}

inline std::string Name(PcmPort port) {
    return port == PcmPort::kHotword ? "hotword" : "ambient";
}

}  // namespace virtual_dsp
