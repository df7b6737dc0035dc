#include "tools/sthal/output/step_texts.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/output/units.h"

namespace sthal {

std::string ResultText(int result) {
    if (result == 0) return "0";
    std::string text = std::to_string(result);
    if (result < 0) text += std::string(" (") + strerrorname_np(-result) + ")";
    return text;
}

std::string BeginText(const Call& call) {
    const std::string name = CallName(call.operation);
    const std::string detail = CallDetail(call);
    switch (call.operation) {
        case Operation::kInitialize:
            return "the audio service initialises the HAL";
        case Operation::kOnSoundCardStateChanged:
            return "the sound card monitor reports: " + name + (call.on ? "(true)" : "(false)");
        case Operation::kOnDockChargerConnected:
            return call.on ? "the phone is put on its dock: " + name + "(true)"
                           : "the phone is taken off its dock: " + name + "(false)";
        case Operation::kOnRoutingGraphChanged:
            return "routed: " + (detail.empty() ? "nothing" : detail) + ": " + name;
        case Operation::kOnSourceMetadataChanged:
            return detail + (call.usages.empty() ? " ends: " : ": ") + name;
        case Operation::kSetParameter:
            return call.on ? "the charger has a fan: the microphones are swapped"
                           : "the fan has gone";
        default:
            return {};
    }
}

std::string EndText(const Call& call) {
    if (call.operation == Operation::kInitialize) {
        return call.on ? "the HAL is up, the sound card is online"
                       : "the HAL is up, the sound card is not online yet";
    }
    if (call.operation == Operation::kSetParameter) {
        return std::string(CallName(call.operation)) + " " + call.name + " -> " +
               (call.accepted ? "taken" : "refused");
    }
    if (!IsOfFramework(call.operation)) return {};
    const std::string detail = CallDetail(call);
    return CallName(call.operation) + (detail.empty() ? "" : " " + detail) + " -> " +
           ResultText(call.result.value_or(0)) + ", took " +
           DurationText(call.end_ns - call.begin_ns);
}

std::string ToText(const WakeLocksHeld& held) {
    std::string names;
    for (const std::string& name : held.names) names += " " + name;
    return "wake locks held:" + (names.empty() ? " none" : names);
}

std::string ToText(const PlayedRecording& played) {
    char text[80];
    (void)std::snprintf(text, sizeof(text), "playing %.1f s at %g times real time",
                        audio::Seconds(played.recording->frames()), played.speed);
    return text;
}

std::vector<DoneStep> StepsOf(const RunFacts& facts) {
    std::vector<DoneStep> steps;
    for (const StoryStep& step : facts.steps) {
        if (step.kind == StoryStep::Kind::kExplanation) continue;
        steps.push_back({step.ns, (step.kind == StoryStep::Kind::kVerb ? "> " : "") + step.text});
    }
    for (const Call& call : facts.calls) {
        if (IsOfFramework(call.operation)) continue;
        if (std::string text = BeginText(call); !text.empty()) {
            steps.push_back({call.begin_ns, std::move(text)});
        }
        if (std::string text = EndText(call); !text.empty()) {
            steps.push_back({call.end_ns, std::move(text)});
        }
    }
    for (const WakeLocksHeld& held : facts.wake_locks) steps.push_back({held.ns, ToText(held)});
    for (const PlayedRecording& played : facts.recordings) {
        steps.push_back({played.ns, ToText(played)});
    }
    std::ranges::stable_sort(steps, {}, &DoneStep::ns);
    return steps;
}

}  // namespace sthal
