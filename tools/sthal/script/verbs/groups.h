#pragma once

#include <span>

#include "tools/sthal/script/verbs.h"

// The verbs, by what they are about.
namespace sthal {

std::span<const Verb> StoryVerbs();
std::span<const Verb> ModelVerbs();
std::span<const Verb> CaptureVerbs();
std::span<const Verb> PlayVerbs();
std::span<const Verb> RecordingVerbs();
std::span<const Verb> DspVerbs();
std::span<const Verb> AroundVerbs();
std::span<const Verb> WaitVerbs();
std::span<const Verb> ExpectVerbs();
std::span<const Verb> ShellVerbs();

}  // namespace sthal
