#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "host/virtual_dsp/nodes/nodes.h"

// FUSE's own, named here so that its header stays out of this one.
struct fuse_req;
struct fuse_session;
struct fuse_pollhandle;
struct fuse_file_info;

namespace virtual_dsp {

// The serving thread's work: takes requests from the kernel, lets faults and nodes decide what
// becomes of them, and answers. Used by one thread only, the one that made it.
class FuseLoop {
  public:
    // Owns `fuse_fd`. Whoever sets `dsp_went_down`, or changes what a node would answer, writes to
    // `event_fd` afterwards.
    FuseLoop(const NodeContext& context, int fuse_fd, int event_fd,
             std::atomic<bool>& dsp_went_down);
    // Ends what is still waiting with ENODEV and closes the connection.
    ~FuseLoop();
    FuseLoop(const FuseLoop&) = delete;
    FuseLoop& operator=(const FuseLoop&) = delete;

    bool IsReady() const { return session_ != nullptr; }
    // Serves until `stop` is set or the file system is unmounted by somebody else.
    void Run(const std::atomic<bool>& stop);

    // --- requests, by way of FUSE's table of functions --------------------------------------
    void Lookup(fuse_req* req, uint64_t parent, const char* name);
    void GetAttributes(fuse_req* req, uint64_t inode);
    void ReadDirectory(fuse_req* req, uint64_t inode, size_t size, off_t offset);
    void Open(fuse_req* req, uint64_t inode, const fuse_file_info& info);
    void Release(fuse_req* req, uint64_t handle);
    void Read(fuse_req* req, size_t size, off_t offset, const fuse_file_info& info);
    void Write(fuse_req* req, std::vector<uint8_t> data, const fuse_file_info& info);
    void Poll(fuse_req* req, uint64_t handle, fuse_pollhandle* waiter);
    void Interrupt(fuse_req* req);

  private:
    using TimePoint = OpenFile::TimePoint;

    // How long something is held back by a fault: for ever or until a time, but never longer than
    // the plan that the fault comes from.
    struct Delay {
        std::optional<TimePoint> until;
        uint64_t generation = 0;
    };

    struct Handle {
        const NodeInfo* node = nullptr;
        std::unique_ptr<OpenFile> file = {};
        fuse_pollhandle* waiter = nullptr;  // To be told when the file becomes ready.
        std::optional<Delay> unready = {};  // By fault, polls find nothing.
    };

    struct Request {
        fuse_req* req = nullptr;
        FaultOperation operation = FaultOperation::kRead;
        const NodeInfo* node = nullptr;
        uint64_t handle = 0;  // Not of an open.
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
    // Answers and tells whoever can be answered or told by now.
    void Settle();
    // False when it was woken by something else than a request.
    bool WaitForRequest();
    std::optional<TimePoint> NextChange() const;

    const NodeContext context_;
    const int event_fd_;
    std::atomic<bool>& dsp_went_down_;
    fuse_session* const session_;  // Null when the library refused.
    const int fuse_fd_;
    std::map<uint64_t, Handle> handles_;
    uint64_t next_handle_ = 1;
    std::list<Request> parked_;
};

}  // namespace virtual_dsp
