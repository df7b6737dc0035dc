#pragma once

#include <cstdint>
#include <string>

#include "host/virtual_dsp/dsp/engine.h"

namespace virtual_dsp {

// What a command asks for.
enum class Action {
    kWriteModel,
    kLoadModel,
    kUnloadModel,
    kStart,
    kStop,
    kForceRecognition,
    kInternalRecognition,
    kQueryLibraryArchitecture,
    kQueryHotwordTimestamp,
    kSetTuning,
    kSetReferenceSource,
    kSetApProcessWithDock,
    kEraserOn,
    kEraserOff,
    kNeuralAecOn,
    kNeuralAecOff,
    kMicSwapOn,
    kMicSwapOff,
};

// One command that the DSP knows.
struct CommandInfo {
    uint16_t id;
    uint16_t bytes;  // Of the whole command; no other length is accepted.
    Action action;
    Engine engine;  // Of the actions that concern one.
    const char* name;
};

// Null for an id that the DSP does not know.
const CommandInfo* FindCommand(uint32_t id);

// The command's name in words, e.g. "hotword start"; "unknown" for an id that the DSP does not
// know.
std::string CommandName(uint32_t id);

}  // namespace virtual_dsp
