#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

#include "host/virtual_dsp/dsp/dsp.h"
#include "host/virtual_dsp/nodes/faults.h"
#include "host/virtual_dsp/nodes/node_table.h"
#include "host/virtual_dsp/nodes/tuning_image.h"
#include "host/virtual_dsp/nodes/wake_locks.h"

namespace virtual_dsp {

// One open file of a node: what its reads, writes and polls do. Never blocks: when it has nothing
// yet, the file system makes the program wait, and asks again. Used by one thread, the file
// system's.
class OpenFile {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~OpenFile() = default;

    // Returns the bytes delivered (0 is the end of the file) or a negative errno; -EAGAIN when
    // there is nothing yet. Only files with contents use `offset`.
    virtual int Read(std::span<uint8_t> out, off_t offset);
    // Returns the bytes taken or a negative errno.
    virtual int Write(std::span<const uint8_t> data);
    // The poll events that hold now. While the DSP is down a device reports POLLERR and POLLHUP:
    // both select() and poll() return, and the read that follows fails with ENODEV.
    virtual short Events() const;

    // The command that a read or poll of this file concerns.
    virtual std::optional<uint16_t> CommandId() const { return std::nullopt; }
    // When the file will change without a call; empty when it will not.
    virtual std::optional<TimePoint> NextChange() const { return std::nullopt; }
    // The DSP has gone down; it may be up again by now.
    virtual void OnDspDown() {}
};

// What the nodes give access to.
struct NodeContext {
    Dsp& dsp;
    FaultPlan& faults;
    WakeLocks& wake_locks;
    TuningImage& tuning;
};

// The size that stat() shows; empty when the node does not exist.
std::optional<off_t> NodeSize(NodeId id, const NodeContext& context);
// Never null for a node that exists.
std::unique_ptr<OpenFile> OpenNode(NodeId id, const NodeContext& context);

}  // namespace virtual_dsp
