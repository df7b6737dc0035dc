#pragma once

#include <fcntl.h>
#include <sys/types.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "host/virtual_dsp/dsp/dsp.h"

namespace virtual_dsp {

// Where the board mounts its file system. The fixed paths below are symbolic links into it.
inline constexpr char kBoardDirectory[] = "/virtual_dsp";

enum class NodeId {
    kCommand,
    kModelData,
    kHotwordPcm,
    kAmbientPcm,
    kNotification,
    kClock,
    kWakeLock,
    kWakeUnlock,
    kTuning,
};

struct NodeInfo {
    NodeId id;
    const char* name;    // In fault rules and on the command line.
    const char* path;    // Where programs look for it.
    int access;          // O_RDONLY, O_WRONLY or O_RDWR; an open that asks for more gets EACCES.
    mode_t permissions;  // As stat() shows them.
    bool is_stream;      // A device: no position, no seeking. Else a file with contents.
    bool whole_writes;   // One write is one message; a part of it means nothing.
    size_t unit_bytes;   // A stream's reads deliver whole units of this size.

    // The name within the board's directory: the last part of `path`.
    constexpr std::string_view FileName() const {
        const std::string_view text = path;
        return text.substr(text.rfind('/') + 1);
    }
};

inline constexpr std::array<NodeInfo, 9> kNodes = {{
        {NodeId::kCommand, "command", wire::kCommandDevice, O_RDWR, 0660, true, true, 1},
        {NodeId::kModelData, "model_data", wire::kModelDataDevice, O_WRONLY, 0220, true, false, 1},
        {NodeId::kHotwordPcm, "hotword_pcm", wire::kHotwordPcmDevice, O_RDONLY, 0440, true, false,
         wire::kHotwordChannels * sizeof(int16_t)},
        {NodeId::kAmbientPcm, "ambient_pcm", wire::kAmbientPcmDevice, O_RDONLY, 0440, true, false,
         1},
        {NodeId::kNotification, "notification", wire::kNotificationDevice, O_RDWR, 0660, true, true,
         1},
        {NodeId::kClock, "clock", wire::kClockNode, O_RDONLY, 0444, false, false, 1},
        {NodeId::kWakeLock, "wake_lock", "/sys/power/wake_lock", O_RDWR, 0664, false, true, 1},
        {NodeId::kWakeUnlock, "wake_unlock", "/sys/power/wake_unlock", O_RDWR, 0664, false, true,
         1},
        {NodeId::kTuning, "tuning", wire::kTuningFile, O_RDONLY, 0444, false, false, 1},
}};

// kNodes is in the order of the enum.
constexpr const NodeInfo& InfoOf(NodeId id) {
    return kNodes[static_cast<size_t>(id)];
}

}  // namespace virtual_dsp
