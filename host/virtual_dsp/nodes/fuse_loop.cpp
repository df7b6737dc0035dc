#include "host/virtual_dsp/nodes/fuse_loop.h"

#define FUSE_USE_VERSION 35
#include <fuse_lowlevel.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <span>
#include <string>
#include <utility>

namespace virtual_dsp {
namespace {

std::optional<uint16_t> CommandIdIn(std::span<const uint8_t> data) {
    wire::CommandHeader header;
    if (data.size() < sizeof(header)) return std::nullopt;
    std::copy_n(data.begin(), sizeof(header), reinterpret_cast<uint8_t*>(&header));
    return header.id;
}

FuseLoop& LoopOf(fuse_req_t req) {
    return *static_cast<FuseLoop*>(fuse_req_userdata(req));
}

void OnInterrupt(fuse_req_t req, void* loop) {
    static_cast<FuseLoop*>(loop)->Interrupt(req);
}

// There is no flush: with the kernel told so (ENOSYS), a close costs no round trip.
fuse_lowlevel_ops Operations() {
    fuse_lowlevel_ops ops{};
    ops.lookup = [](fuse_req_t req, fuse_ino_t parent, const char* name) {
        LoopOf(req).directory().Lookup(req, parent, name);
    };
    ops.getattr = [](fuse_req_t req, fuse_ino_t inode, fuse_file_info*) {
        LoopOf(req).directory().GetAttributes(req, inode);
    };
    // Shells and streams that open with O_TRUNC expect to be obeyed; there is nothing to truncate.
    ops.setattr = [](fuse_req_t req, fuse_ino_t inode, struct stat*, int, fuse_file_info*) {
        LoopOf(req).directory().GetAttributes(req, inode);
    };
    ops.readdir = [](fuse_req_t req, fuse_ino_t inode, size_t size, off_t offset, fuse_file_info*) {
        LoopOf(req).directory().ReadDirectory(req, inode, size, offset);
    };
    ops.open = [](fuse_req_t req, fuse_ino_t inode, fuse_file_info* info) {
        LoopOf(req).Open(req, inode, *info);
    };
    ops.release = [](fuse_req_t req, fuse_ino_t, fuse_file_info* info) {
        LoopOf(req).Release(req, info->fh);
    };
    ops.read = [](fuse_req_t req, fuse_ino_t, size_t size, off_t offset, fuse_file_info* info) {
        LoopOf(req).Read(req, size, offset, *info);
    };
    ops.write = [](fuse_req_t req, fuse_ino_t, const char* data, size_t size, off_t,
                   fuse_file_info* info) {
        LoopOf(req).Write(req, {data, data + size}, *info);
    };
    ops.poll = [](fuse_req_t req, fuse_ino_t, fuse_file_info* info, fuse_pollhandle* waiter) {
        LoopOf(req).Poll(req, info->fh, waiter);
    };
    return ops;
}

fuse_session* NewSession(int fuse_fd, FuseLoop* loop) {
    static const fuse_lowlevel_ops operations = Operations();
    char name[] = "virtual_board";
    char* arguments[] = {name, nullptr};
    fuse_args args = FUSE_ARGS_INIT(1, arguments);
    fuse_session* session = fuse_session_new(&args, &operations, sizeof(operations), loop);
    fuse_opt_free_args(&args);  // By now a copy of the library's own.
    if (session == nullptr) return nullptr;
    // The library's way to take over a connection that is mounted already.
    const std::string mounted = "/dev/fd/" + std::to_string(fuse_fd);
    if (fuse_session_mount(session, mounted.c_str()) == 0) return session;
    fuse_session_destroy(session);
    return nullptr;
}

}  // namespace

FuseLoop::FuseLoop(const NodeContext& context, int fuse_fd, int event_fd,
                   std::atomic<bool>& dsp_went_down)
    : context_(context),
      directory_(context),
      event_fd_(event_fd),
      dsp_went_down_(dsp_went_down),
      session_(NewSession(fuse_fd, this)),
      fuse_fd_(fuse_fd) {}

FuseLoop::~FuseLoop() {
    for (const Request& request : parked_) fuse_reply_err(request.req, ENODEV);
    for (auto& [id, handle] : handles_) {
        if (handle.waiter != nullptr) fuse_pollhandle_destroy(handle.waiter);
    }
    if (session_ != nullptr) {
        fuse_session_destroy(session_);  // Closes the descriptor as well.
    } else {
        close(fuse_fd_);
    }
}

void FuseLoop::Run(const std::atomic<bool>& stop) {
    fuse_buf buffer{};
    while (!stop && !fuse_session_exited(session_)) {
        if (WaitForRequest() && fuse_session_receive_buf(session_, &buffer) > 0) {
            // First, so that a command sent to a restarted DSP is not taken for one that went
            // down with the old one.
            TakeDspDown();
            fuse_session_process_buf(session_, &buffer);
        }
        Settle();
    }
    free(buffer.mem);
}

bool FuseLoop::WaitForRequest() {
    pollfd waits[] = {{fuse_fd_, POLLIN, 0}, {event_fd_, POLLIN, 0}};
    timespec timeout{};
    const auto next = NextChange();
    if (next) {
        const auto left = std::max<int64_t>((*next - std::chrono::steady_clock::now()).count(), 0);
        timeout = {left / 1'000'000'000, left % 1'000'000'000};
    }
    if (ppoll(waits, 2, next ? &timeout : nullptr, nullptr) <= 0) return false;
    if (waits[1].revents != 0) {
        uint64_t count = 0;
        (void)!read(event_fd_, &count, sizeof(count));
    }
    return waits[0].revents != 0;
}

std::optional<OpenFile::TimePoint> FuseLoop::NextChange() const {
    std::optional<TimePoint> next;
    const auto consider = [&next](const std::optional<TimePoint>& time) {
        if (time && (!next || *time < *next)) next = time;
    };
    for (const Request& request : parked_) {
        if (request.delay) consider(request.delay->until);
    }
    for (const auto& [id, handle] : handles_) {
        consider(handle.file->NextChange());
        if (handle.unready && handle.waiter != nullptr) consider(handle.unready->until);
    }
    return next;
}

void FuseLoop::TakeDspDown() {
    if (!dsp_went_down_.exchange(false)) return;
    for (Request& request : parked_) {
        if (request.delay && !request.delay->until) request.delay.reset();
    }
    for (auto& [id, handle] : handles_) {
        if (handle.unready && !handle.unready->until) handle.unready.reset();
        handle.file->OnDspDown();
    }
}

void FuseLoop::Settle() {
    TakeDspDown();
    for (auto request = parked_.begin(); request != parked_.end();) {
        request = Try(*request) ? parked_.erase(request) : std::next(request);
    }
    for (auto& [id, handle] : handles_) {
        if (handle.waiter == nullptr) continue;
        // Told once: whoever goes on waiting polls again and leaves a new handle.
        if ((EventsOf(handle) & ~(POLLOUT | POLLWRNORM)) == 0) continue;
        fuse_lowlevel_notify_poll(handle.waiter);
        fuse_pollhandle_destroy(std::exchange(handle.waiter, nullptr));
    }
}

// --- calls on open files ------------------------------------------------------------------------

void FuseLoop::Open(fuse_req* req, uint64_t inode, const fuse_file_info& info) {
    const NodeInfo* node = FuseDirectory::NodeOf(inode);
    if (node == nullptr) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    const int access = info.flags & O_ACCMODE;
    if (node->access != O_RDWR && access != node->access) {
        fuse_reply_err(req, EACCES);
        return;
    }
    Begin({.req = req, .operation = FaultOperation::kOpen, .node = node, .flags = info.flags}, {});
}

void FuseLoop::Read(fuse_req* req, size_t size, off_t offset, const fuse_file_info& info) {
    const Handle& handle = handles_.at(info.fh);
    Begin({.req = req,
           .operation = FaultOperation::kRead,
           .node = handle.node,
           .handle = info.fh,
           .flags = info.flags,
           .size = size,
           .offset = offset},
          handle.file->CommandId());
}

void FuseLoop::Write(fuse_req* req, std::vector<uint8_t> data, const fuse_file_info& info) {
    const NodeInfo* node = handles_.at(info.fh).node;
    const auto id = node->id == NodeId::kCommand ? CommandIdIn(data) : std::nullopt;
    Begin({.req = req,
           .operation = FaultOperation::kWrite,
           .node = node,
           .handle = info.fh,
           .flags = info.flags,
           .data = std::move(data)},
          id);
}

void FuseLoop::Begin(Request request, std::optional<uint16_t> command_id) {
    const auto fault = context_.faults.Next(request.node->id, request.operation, command_id);
    if (fault && fault->effect.kind == FaultEffect::Kind::kErrno) {
        fuse_reply_err(request.req, fault->effect.value);
        return;
    }
    request.delay = DelayOf(fault);
    if (fault) request.effect = fault->effect;
    if (Try(request)) return;
    if (fuse_req_interrupted(request.req)) {
        fuse_reply_err(request.req, EINTR);
        return;
    }
    fuse_req* const req = request.req;
    parked_.push_back(std::move(request));
    // Without this a process that is killed while it waits here would never go.
    fuse_req_interrupt_func(req, OnInterrupt, this);
}

void FuseLoop::Interrupt(fuse_req* req) {
    const auto request = std::find_if(parked_.begin(), parked_.end(),
                                      [req](const Request& parked) { return parked.req == req; });
    if (request == parked_.end()) return;
    parked_.erase(request);
    fuse_reply_err(req, EINTR);
}

std::optional<FuseLoop::Delay> FuseLoop::DelayOf(const std::optional<Fault>& fault) {
    if (!fault) return std::nullopt;
    if (fault->effect.kind == FaultEffect::Kind::kHang) return Delay{{}, fault->generation};
    if (fault->effect.kind != FaultEffect::Kind::kDelay) return std::nullopt;
    const auto until =
            std::chrono::steady_clock::now() + std::chrono::milliseconds(fault->effect.value);
    return Delay{until, fault->generation};
}

bool FuseLoop::IsOver(const Delay& delay) const {
    return delay.generation != context_.faults.generation() ||
           (delay.until && std::chrono::steady_clock::now() >= *delay.until);
}

bool FuseLoop::Try(Request& request) {
    if (request.delay && !IsOver(*request.delay)) return false;
    request.delay.reset();
    switch (request.operation) {
        case FaultOperation::kOpen:
            return TryOpen(request);
        case FaultOperation::kRead:
            return TryRead(request);
        case FaultOperation::kWrite:
            return TryWrite(request);
        case FaultOperation::kPoll:   // Never waits.
        case FaultOperation::kReply:  // The command node's own affair.
            break;
    }
    return true;
}

bool FuseLoop::TryOpen(Request& request) {
    auto file = OpenNode(request.node->id, context_);
    if (!file) {
        fuse_reply_err(request.req, ENOENT);
        return true;
    }
    const uint64_t id = next_handle_++;
    handles_[id] = Handle{.node = request.node, .file = std::move(file)};
    fuse_file_info info{};
    info.flags = request.flags;
    info.fh = id;
    info.direct_io = 1;
    info.noflush = 1;
    info.nonseekable = request.node->is_stream ? 1 : 0;
    // The kernel does not release what it has not got: the caller was interrupted meanwhile.
    if (fuse_reply_open(request.req, &info) == -ENOENT) handles_.erase(id);
    return true;
}

bool FuseLoop::TryRead(Request& request) {
    size_t limit = request.size;
    size_t asked = request.size;
    if (request.effect && request.effect->kind == FaultEffect::Kind::kShort) {
        limit = ShortenedSize(*request.effect, request.size);
        if (limit == 0) {
            fuse_reply_buf(request.req, nullptr, 0);
            return true;
        }
        const size_t unit = request.node->unit_bytes;
        asked = std::min(request.size, (limit + unit - 1) / unit * unit);
    }
    std::vector<uint8_t> buffer(asked);
    const int result = handles_.at(request.handle).file->Read(buffer, request.offset);
    if (result == -EAGAIN && (request.flags & O_NONBLOCK) == 0) return false;
    if (result < 0) {
        fuse_reply_err(request.req, -result);
        return true;
    }
    buffer.resize(std::min(limit, static_cast<size_t>(result)));
    if (request.effect && request.effect->kind == FaultEffect::Kind::kTorn) {
        Tear(*request.effect, buffer);
    }
    fuse_reply_buf(request.req, reinterpret_cast<const char*>(buffer.data()), buffer.size());
    return true;
}

bool FuseLoop::TryWrite(Request& request) {
    if (request.effect && request.effect->kind == FaultEffect::Kind::kShort) {
        request.data.resize(ShortenedSize(*request.effect, request.data.size()));
        if (request.node->whole_writes || request.data.empty()) {
            fuse_reply_write(request.req, request.data.size());
            return true;
        }
    }
    if (request.effect && request.effect->kind == FaultEffect::Kind::kTorn) {
        Tear(*request.effect, request.data);
    }
    const int result = handles_.at(request.handle).file->Write(request.data);
    if (result < 0) {
        fuse_reply_err(request.req, -result);
    } else {
        fuse_reply_write(request.req, static_cast<size_t>(result));
    }
    return true;
}

void FuseLoop::Poll(fuse_req* req, uint64_t id, fuse_pollhandle* waiter) {
    Handle& handle = handles_.at(id);
    if (waiter != nullptr) {
        if (handle.waiter != nullptr) fuse_pollhandle_destroy(handle.waiter);
        handle.waiter = waiter;
    }
    short forced = 0;
    // While one fault keeps the file from becoming ready, polls meet no other.
    if (!handle.unready || IsOver(*handle.unready)) {
        const auto fault = context_.faults.Next(handle.node->id, FaultOperation::kPoll,
                                                handle.file->CommandId());
        handle.unready = DelayOf(fault);
        // A poll has no errno of its own: this is how the kernel passes one on.
        if (fault && fault->effect.kind == FaultEffect::Kind::kErrno) forced = POLLERR;
        if (fault && fault->effect.kind == FaultEffect::Kind::kReady) forced = POLLIN | POLLRDNORM;
    }
    fuse_reply_poll(req, static_cast<unsigned>(EventsOf(handle) | forced));
}

short FuseLoop::EventsOf(const Handle& handle) const {
    return handle.unready && !IsOver(*handle.unready) ? 0 : handle.file->Events();
}

void FuseLoop::Release(fuse_req* req, uint64_t id) {
    const auto found = handles_.find(id);
    if (found != handles_.end()) {
        if (found->second.waiter != nullptr) fuse_pollhandle_destroy(found->second.waiter);
        handles_.erase(found);
    }
    fuse_reply_err(req, 0);
}

}  // namespace virtual_dsp
