#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "host/virtual_dsp/nodes/fuse_directory.h"
#include "host/virtual_dsp/nodes/nodes.h"

// FUSE's types, declared here so that this header does not need FUSE's.
struct fuse_req;
struct fuse_session;
struct fuse_pollhandle;
struct fuse_file_info;

namespace virtual_dsp {

// The serving thread's work: takes requests from the kernel, lets faults and nodes decide on the
// results, and answers. Only the thread that made it uses it.
class FuseLoop {
  public:
    // Owns `fuse_fd`. A thread that sets `dsp_went_down`, or changes what a node would answer, must
    // write to `event_fd` afterwards.
    FuseLoop(const NodeContext& context, int fuse_fd, int event_fd,
             std::atomic<bool>& dsp_went_down);
    // Answers all waiting requests with ENODEV, and closes the connection.
    ~FuseLoop();
    FuseLoop(const FuseLoop&) = delete;
    FuseLoop& operator=(const FuseLoop&) = delete;

    bool IsReady() const { return session_ != nullptr; }
    // Serves until `stop` is set or the file system is unmounted by somebody else.
    void Run(const std::atomic<bool>& stop);

    // --- requests, by way of FUSE's table of functions --------------------------------------
    const FuseDirectory& directory() const { return directory_; }
    void Open(fuse_req* req, uint64_t inode, const fuse_file_info& info);
    void Release(fuse_req* req, uint64_t handle);
    void Read(fuse_req* req, size_t size, off_t offset, const fuse_file_info& info);
    void Write(fuse_req* req, std::vector<uint8_t> data, const fuse_file_info& info);
    void Poll(fuse_req* req, uint64_t handle, fuse_pollhandle* waiter);
    void Interrupt(fuse_req* req);

  private:
    using TimePoint = OpenFile::TimePoint;

    // How long a fault holds something back: for ever or until a time, but never longer than the
    // fault's plan is in force.
    struct Delay {
        std::optional<TimePoint> until;
        uint64_t generation = 0;
    };

    struct Handle {
        const NodeInfo* node = nullptr;
        std::unique_ptr<OpenFile> file = {};
        fuse_pollhandle* waiter = nullptr;  // Notified when the file becomes ready.
        std::optional<Delay> unready = {};  // A fault: polls find nothing.
    };

    struct Request {
        fuse_req* req = nullptr;
        FaultOperation operation = FaultOperation::kRead;
        const NodeInfo* node = nullptr;
        uint64_t handle = 0;  // Not used by an open.
        int flags = 0;        // Of the open file, at the time of the call.
        size_t size = 0;
        off_t offset = 0;
        std::vector<uint8_t> data = {};
        std::optional<FaultEffect> effect = {};
        std::optional<Delay> delay = {};
    };

    void Begin(Request request, std::optional<uint16_t> command_id);
    // Each of these answers the request and returns true, or returns false for "not yet".
    bool Try(Request& request);
    bool TryOpen(Request& request);
    bool TryRead(Request& request);
    bool TryWrite(Request& request);

    static std::optional<Delay> DelayOf(const std::optional<Fault>& fault);
    bool IsOver(const Delay& delay) const;
    short EventsOf(const Handle& handle) const;
    void TakeDspDown();
    // Answers the requests that can be answered by now, and notifies the polls whose files are
    // ready.
    void Settle();
    // False when something other than a request woke it.
    bool WaitForRequest();
    std::optional<TimePoint> NextChange() const;

    const NodeContext context_;
    const FuseDirectory directory_;
    const int event_fd_;
    std::atomic<bool>& dsp_went_down_;
    fuse_session* const session_;  // Null when FUSE's library refused.
    const int fuse_fd_;
    std::map<uint64_t, Handle> handles_;
    uint64_t next_handle_ = 1;
    std::list<Request> parked_;
};

}  // namespace virtual_dsp
