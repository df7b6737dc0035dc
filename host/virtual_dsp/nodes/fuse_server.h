#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "host/virtual_dsp/nodes/nodes.h"

namespace virtual_dsp {

// Serves the board's nodes as a FUSE file system, on one thread of its own that never waits for a
// node: a read that has nothing to deliver is parked and tried again when something has changed.
//
// The program that runs the server may use the nodes itself. Two things make that safe:
// - The serving thread has its own descriptor table, so that /dev/fuse is closed, and every call in
//   progress ended, as soon as that thread dies, even if another thread of the process is stuck in
//   such a call and cannot let go of the table that it shares with the rest.
// - The process leaves no core dump. A dump waits for all threads before any of them closes its
//   files, so a thread that is inside a call on these nodes would never get there.
class FuseServer {
  public:
    FuseServer(NodeContext context, std::string directory);
    // Ends every call in progress with an error, unmounts and joins.
    ~FuseServer();
    FuseServer(const FuseServer&) = delete;
    FuseServer& operator=(const FuseServer&) = delete;

    // Mounts and begins to serve. Returns false, with `error` set, when that cannot be done.
    [[nodiscard]] bool Start(std::string* error);

    // Something may have become readable, or a fault was lifted. From any thread.
    void Wake();
    // The DSP has gone down: calls that hang because of a fault go on and fail. From any thread.
    void OnDspDown();

  private:
    void Serve(std::promise<std::string> started);

    const NodeContext context_;
    const std::string directory_;
    const int event_fd_;  // Wakes the serving thread; known by this number in both tables.
    int was_dumpable_ = 1;
    std::atomic<bool> stop_ = false;
    std::atomic<bool> dsp_went_down_ = false;
    std::thread thread_;
};

}  // namespace virtual_dsp
