#include "host/virtual_dsp/nodes/fuse_server.h"

#include <sched.h>
#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/virtual_dsp/nodes/fuse_loop.h"
#include "host/virtual_dsp/nodes/fuse_mount.h"
#include "host/virtual_dsp/nodes/signals_blocked.h"

namespace virtual_dsp {
namespace {

constexpr long kFuseMagic = 0x65735546;  // As statfs(2) reports it.

// Whether the caller's thread now has a descriptor table with nothing in it but the standard
// streams and `kept`. Anything more would be held open by this thread after the program has closed
// it: the reader of a pipe would wait for its end in vain.
bool TakeOwnDescriptorTable(int kept) {
    if (unshare(CLONE_FILES) != 0) return false;
    if (kept > STDERR_FILENO + 1)
        close_range(STDERR_FILENO + 1, static_cast<unsigned>(kept) - 1, 0);
    close_range(static_cast<unsigned>(kept) + 1, ~0U, 0);
    return true;
}

}  // namespace

FuseServer::FuseServer(NodeContext context, std::string directory)
    : context_(context),
      directory_(std::move(directory)),
      event_fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

host::Result<void> FuseServer::Start() {
    struct statfs status {};
    if (statfs(directory_.c_str(), &status) == 0 && status.f_type == kFuseMagic) {
        return host::Error("another virtual board is being served on " + directory_);
    }
    if (event_fd_ < 0) return host::Error("no descriptor left for the server of the nodes");
    was_dumpable_ = prctl(PR_GET_DUMPABLE);
    prctl(PR_SET_DUMPABLE, 0);

    std::promise<host::Result<void>> started;
    std::future<host::Result<void>> outcome = started.get_future();
    {
        const SignalsBlocked blocked;
        thread_ = std::thread(&FuseServer::Serve, this, std::move(started));
    }
    return outcome.get();
}

FuseServer::~FuseServer() {
    if (thread_.joinable()) {
        stop_ = true;
        Wake();
        thread_.join();
        prctl(PR_SET_DUMPABLE, was_dumpable_);
    }
    if (event_fd_ >= 0) close(event_fd_);
}

void FuseServer::Wake() {
    const uint64_t one = 1;
    // Can fail only when the counter is full, which wakes the loop as well.
    (void)!write(event_fd_, &one, sizeof(one));
}

void FuseServer::OnDspDown() {
    dsp_went_down_ = true;
    Wake();
}

void FuseServer::Serve(std::promise<host::Result<void>> started) {
    pthread_setname_np(pthread_self(), "virtual_board");
    if (!TakeOwnDescriptorTable(event_fd_)) {
        started.set_value(host::Error(std::string("cannot have a descriptor table apart: ") +
                                      strerror(errno)));
        return;
    }
    auto fuse_fd = MountFuse(directory_);
    if (!fuse_fd.ok()) {
        started.set_value(host::Error(fuse_fd.error()));
        return;
    }
    {
        FuseLoop loop(context_, fuse_fd->release(), event_fd_, dsp_went_down_);
        if (loop.IsReady()) {
            started.set_value({});
            loop.Run(stop_);
        } else {
            started.set_value(host::Error("the FUSE library refused to start"));
        }
        UnmountFuse(directory_);
    }
}

}  // namespace virtual_dsp
