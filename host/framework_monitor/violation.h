#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>

// What a FrameworkMonitor finds.
namespace framework {

enum class Rule {
    kUnknownHandle,               // An event for a handle that was never given out.
    kNotStarted,                  // An event for a model that was never started.
    kSecondEvent,                 // A second event without a new start.
    kSecondEventAfterDspRestart,  // The same, and the HAL had restarted its detections.
    kEventAfterStop,              // An event after a stop of its model has returned.
    kEventAfterUnload,            // The same after an unload.
    kCallbackUnderLock,           // A callback that is made while the HAL's lock is held.
};

// A call of the framework that has succeeded, or an event for it.
struct Call {
    enum class Kind {
        kLoadSoundModel,
        kLoadPhraseSoundModel,
        kUnloadSoundModel,
        kStartRecognition,
        kStopRecognition,
        kRecognitionCallback,
        kPhraseRecognitionCallback,
    };
    Kind kind = Kind::kLoadSoundModel;
    int handle = 0;
    uint64_t number = 0;  // Ascends with every call and event; has gaps.
    pid_t thread = 0;
    std::string thread_name = {};
};

struct Violation {
    Rule rule = Rule::kUnknownHandle;
    Call event;
    // The call or event that this event must not follow. None of kUnknownHandle, where nothing came
    // before, and of kCallbackUnderLock.
    std::optional<Call> earlier = {};
    // Of kCallbackUnderLock: how long a call has waited for the lock meanwhile.
    std::chrono::milliseconds waited{0};
};

const char* ToText(Rule rule);
// "an event after the stop of its model has returned: #7 recognitionCallback(1) on thread ...,
// after #5 StopRecognition(1) -> 0 on thread ...".
std::string ToText(const Violation& violation);
std::ostream& operator<<(std::ostream& out, const Violation& violation);

}  // namespace framework
