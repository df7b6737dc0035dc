#pragma once

#include <string>
#include <vector>

#include "tools/sthal/facts/run_facts.h"

// The sentences that persons read of what was done in a run.
namespace sthal {

// What the audio service is about to do with a call: "the phone is put on its dock:
// OnDockChargerConnected(true)". Empty of a call of the framework, and of a dump.
std::string BeginText(const Call& call);
// What a call has returned: "startRecognition model 1, io handle 13 -> 0, took 1.2 ms". Empty
// where there is nothing to tell.
std::string EndText(const Call& call);

std::string ToText(const WakeLocksHeld& held);
// "playing 7.7 s at 8 times real time".
std::string ToText(const PlayedRecording& played);

// "0", "-22 (EINVAL)".
std::string ResultText(int result);

// What was done, in the order of time: the story's steps and what the audio service did.
struct DoneStep {
    int64_t ns = 0;
    std::string text;
};
std::vector<DoneStep> StepsOf(const RunFacts& facts);

}  // namespace sthal
