#pragma once

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "host/common/result.h"
#include "host/virtual_dsp/nodes/nodes.h"

namespace virtual_dsp {

// Serves the board's nodes as a FUSE file system, on one thread of its own. The thread never waits
// for a node: it parks a read that has nothing to deliver, and tries it again when something has
// changed.
//
// The program that runs the server may use the nodes itself. Two things make that safe:
// - The serving thread has its own descriptor table. As soon as that thread dies, /dev/fuse is
//   closed and every call in progress ends. In a shared table, /dev/fuse would stay open: another
//   thread of the process may be stuck in such a call and keep the table.
// - The process leaves no core dump. A dump waits for all threads before any of them closes its
//   files, but a thread inside a call on these nodes would wait for ever.
class FuseServer {
  public:
    FuseServer(NodeContext context, std::string directory);
    // Ends every call in progress with an error, unmounts and joins.
    ~FuseServer();
    FuseServer(const FuseServer&) = delete;
    FuseServer& operator=(const FuseServer&) = delete;

    // Mounts and begins to serve.
    [[nodiscard]] host::Result<void> Start();

    // Call it when something may have become readable, or a fault has ended. From any thread.
    void Wake();
    // Call it when the DSP has gone down: calls that hang because of a fault then go on and fail.
    // From any thread.
    void OnDspDown();

  private:
    void Serve(std::promise<host::Result<void>> started);

    const NodeContext context_;
    const std::string directory_;
    const int event_fd_;  // Wakes the serving thread. It has this number in both tables.
    int was_dumpable_ = 1;
    std::atomic<bool> stop_ = false;
    std::atomic<bool> dsp_went_down_ = false;
    std::thread thread_;
};

}  // namespace virtual_dsp
