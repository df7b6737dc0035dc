#pragma once

#include <string>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** One thing that happens to a HAL. The meaning of a, b and c depends on the kind; see step.cpp. */
struct Step {
    enum class Kind {
        // The framework's.
        kLoad,  // Type, model, defect.
        kUnload,
        kStart,  // Handle, io handle, configuration.
        kStop,
        kForce,
        kProperties,
        // Captures.
        kInternalForce,
        kStopInternalForce,
        kStartBuffering,  // Io handle, whether internal forced.
        kRead,            // Engine, whether the DSP has no audio.
        // The environment.
        kDock,
        kMicSwap,
        kRoute,     // A bit for each usecase that is on the loudspeaker.
        kMetadata,  // Usecase, tracks.
        kOnline,    // A report, whatever state the DSP is in.
        // The DSP's.
        kDetect,
        kCrash,    // If a is 1, it is reported offline at once.
        kRecover,  // Boots and is reported online.
        kFault,    // Operation, argument, how often.
        kReadFault,
        // The service's.
        kRestartHal,
    };

    Kind kind;
    int a = 0;
    int b = 0;
    int c = 0;
};

inline constexpr int kStepModels = 5;  // Of which each handle may load any.

std::string ToText(const Step& step);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
