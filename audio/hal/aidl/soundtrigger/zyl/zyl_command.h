#pragma once

#include <cstdint>

#include "audio/hal/aidl/soundtrigger/zyl/zyl_wire.h"

// Building commands: every one of them goes through here for its header.
namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

/** The header of the next command. Safe from any thread. */
CommandHeader MakeHeader(CommandId id, uint16_t size);

/** A command whose fields after the header are 0. */
template <typename Payload>
Payload MakeCommand(CommandId id) {
    Payload command{};
    command.header = MakeHeader(id, sizeof(Payload));
    return command;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
