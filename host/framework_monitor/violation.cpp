#include "host/framework_monitor/violation.h"

namespace framework {
namespace {

std::string NameAndHandle(const Call& call) {
    const std::string handle = std::to_string(call.handle);
    switch (call.kind) {
        case Call::Kind::kLoadSoundModel:
            return "LoadSoundModel -> " + handle;
        case Call::Kind::kLoadPhraseSoundModel:
            return "LoadPhraseSoundModel -> " + handle;
        case Call::Kind::kUnloadSoundModel:
            return "UnloadSoundModel(" + handle + ") -> 0";
        case Call::Kind::kStartRecognition:
            return "StartRecognition(" + handle + ") -> 0";
        case Call::Kind::kStopRecognition:
            return "StopRecognition(" + handle + ") -> 0";
        case Call::Kind::kRecognitionCallback:
            return "recognitionCallback(" + handle + ")";
        case Call::Kind::kPhraseRecognitionCallback:
            return "phraseRecognitionCallback(" + handle + ")";
    }
    return "?";
}

std::string ToText(const Call& call) {
    return "#" + std::to_string(call.number) + " " + NameAndHandle(call) + " on thread " +
           std::to_string(call.thread) + " (" + call.thread_name + ")";
}

std::string Before(const Violation& violation) {
    if (violation.earlier) return ToText(*violation.earlier);
    if (violation.rule == Rule::kUnknownHandle) return "no LoadSoundModel";
    return "a call that needs the lock and has waited for " +
           std::to_string(violation.waited.count()) + " ms";
}

}  // namespace

const char* ToText(Rule rule) {
    switch (rule) {
        case Rule::kUnknownHandle:
            return "an event for an unknown handle";
        case Rule::kNotStarted:
            return "an event for a model that is not started";
        case Rule::kSecondEvent:
            return "a second event without a new start";
        case Rule::kSecondEventAfterDspRestart:
            return "a second event without a new start, after a restart of the DSP";
        case Rule::kEventAfterStop:
            return "an event after the stop of its model has returned";
        case Rule::kEventAfterUnload:
            return "an event after the unload of its model has returned";
        case Rule::kCallbackUnderLock:
            return "a callback while the HAL's lock is held";
    }
    return "?";
}

std::string ToText(const Violation& violation) {
    return std::string(ToText(violation.rule)) + ": " + ToText(violation.event) + ", after " +
           Before(violation);
}

std::ostream& operator<<(std::ostream& out, const Violation& violation) {
    return out << ToText(violation);
}

}  // namespace framework
