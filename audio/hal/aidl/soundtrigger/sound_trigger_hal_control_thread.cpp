// The control thread: waits for detections and delivers them.
#define LOG_TAG "StHal::SoundTriggerHal"

#include <android-base/logging.h>
#include <sys/select.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <optional>
#include <string>

#include "audio/hal/aidl/soundtrigger/log_line.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

// A node that fails, or is readable without a record, stays readable until the DSP is reported
// offline: without a pause the loop would spin, and fill the log.
constexpr std::chrono::milliseconds kFailedReadPause{100};

// No engine's number: ReadDspNotification leaves it where there was no whole record.
constexpr int kNoRecord = -1;

// FD_SET would write past the end of the set.
bool IsSelectable(int fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

}  // namespace

struct SoundTriggerHal::ControlTurn {
    fd_set read_set;
    int highest_fd = -1;
    int notification_fd = -1;  // Negative when detections are not watched.

    int result = 0;  // Of the last step that a detection came to.
    bool is_without_record = false;
    std::optional<int32_t> handle;  // Of the client whose event is to be delivered.
    std::string payload;
};

void SoundTriggerHal::SendControlMessage() {
    if (!control_pipe_.is_open()) {
        LOG(ERROR) << "SendControlMessage: pipe reader doesn't exist";
        return;
    }
    if (const int error = control_pipe_.Wake(); error != 0) {
        LOG(ERROR) << "SendControlMessage: write failure due to " << error;
    }
}

void SoundTriggerHal::ControlThreadLoop() {
    LOG(INFO) << "ControlThreadLoop: Enter";
    if (!OpenControlPipe()) return;
    while (!stop_control_thread_) {
        ControlTurn turn;
        PrepareWaitSet(&turn);
        // No time-out: every reason to look again comes through a descriptor.
        const int ready = select(turn.highest_fd + 1, &turn.read_set, nullptr, nullptr,
                                 /*timeout=*/nullptr);
        if (ready == 0) continue;
        if (ready == -1) {
            const int error = errno;
            LOG(ERROR) << "ControlThreadLoop: select errno " << error;
            if (error == EAGAIN || error == EINTR) {
                LOG(WARNING) << "ControlThreadLoop: try to select again";
                continue;
            }
            LOG(ERROR) << "ControlThreadLoop: exit loop due to " << error;
            break;
        }
        HandleReady(&turn);
    }
    {
        std::lock_guard lock(lock_);
        control_pipe_.Close();
    }
    LOG(INFO) << "ControlThreadLoop: exit";
    ReleaseLockOnceMore();
}

bool SoundTriggerHal::OpenControlPipe() {
    std::lock_guard lock(lock_);
    if (control_pipe_.Open() && IsSelectable(control_pipe_.read_end())) return true;
    control_pipe_.Close();
    LOG(ERROR) << "ControlThreadLoop: fail to create pipe";
    return false;
}

// The thread's last act, kept on purpose: one release more than there were holds. It relies on a
// plain mutex, for which it has no effect while nobody holds it. In destruction nobody does, since
// the destructor waits for this thread without the lock; after a select() that failed for good,
// which takes a broken descriptor set or no memory, somebody may.
void SoundTriggerHal::ReleaseLockOnceMore() {
    lock_.unlock();
}

void SoundTriggerHal::PrepareWaitSet(ControlTurn* turn) {
    std::lock_guard lock(lock_);
    FD_ZERO(&turn->read_set);
    turn->highest_fd = control_pipe_.read_end();
    FD_SET(turn->highest_fd, &turn->read_set);
    const bool is_watching = HasActiveClient() && is_dsp_online_;
    // A DSP that restarted between two turns has left a descriptor of its former life.
    if (!is_watching || is_notification_stale_) adapter_->ResetNotificationFileDescriptor();
    is_notification_stale_ = false;
    if (!is_watching) return;
    const int notification_fd = adapter_->GetNotificationFileDescriptor();
    if (!IsSelectable(notification_fd)) {
        LOG(WARNING) << "ControlThreadLoop: Can't get notification fd.";
        return;
    }
    FD_SET(notification_fd, &turn->read_set);
    turn->notification_fd = notification_fd;
    turn->highest_fd = std::max(turn->highest_fd, notification_fd);
}

void SoundTriggerHal::HandleReady(ControlTurn* turn) {
    {
        std::lock_guard lock(lock_);
        if (FD_ISSET(control_pipe_.read_end(), &turn->read_set)) DrainControlPipe();
        if (turn->notification_fd >= 0 && FD_ISSET(turn->notification_fd, &turn->read_set) &&
            is_dsp_online_) {
            ReadDetection(turn);
        }
    }
    if (turn->handle) DeliverRecognition(*turn);
    if (turn->result == -ENODEV) {
        LOG(WARNING) << "ControlThreadLoop: Wait for dsp interface when restarting.";
    }
    if (turn->result == -ENODEV || turn->is_without_record) {
        std::this_thread::sleep_for(kFailedReadPause);
    }
}

void SoundTriggerHal::DrainControlPipe() {
    // All of it: any number of messages asks for one rebuild.
    for (ssize_t size; (size = control_pipe_.TakeMessage()) > 0;) {
        if (size != WakeUpPipe::kMessageBytes) {
            LOG(WARNING) << "ControlThreadLoop: invalid cmd size: " << size;
            return;
        }
        LOG_LINE(INFO, "ControlThreadLoop: get update command");
    }
}

// Takes one detection from the DSP and moves its client on.
void SoundTriggerHal::ReadDetection(ControlTurn* turn) {
    int engine = kNoRecord;
    turn->result = adapter_->ReadDspNotification(&engine, turn->payload);
    turn->is_without_record = engine == kNoRecord;
    if (turn->result < 0) {
        LOG(ERROR) << "ControlThreadLoop: read trigger event failure: " << turn->result;
        return;
    }
    LOG_LINE(INFO, "ControlThreadLoop: read trigger event with model type: " +
                           std::to_string(turn->is_without_record ? 0 : engine));
    const auto found = std::find_if(clients_.begin(), clients_.end(), [&](const auto& entry) {
        return entry.second->is_started_ && entry.second->engine_type_ == engine;
    });
    // A detection during an internal recognition is that recognition's, not the framework's.
    if (found == clients_.end() || found->second->is_internal_force_active_) return;
    SoundTriggerHalClient* const client = found->second.get();
    LOG_LINE(INFO, "ControlThreadLoop: received " + toString(client->engine_type_) +
                           " recognition with payload: " + turn->payload);
    turn->result = client->RequestCallbackProcessing();
    if (turn->result == 0) {
        turn->handle = client->handle_;
        delivery_.Begin(client->handle_);
    } else {
        LOG(ERROR) << "ControlThreadLoop: requested CallbackProcessing failure from "
                   << toString(client->state());
    }
}

void SoundTriggerHal::DeliverRecognition(const ControlTurn& turn) {
    // Without the lock: the framework may answer with any request.
    if (const auto callback = ClaimCallback(turn)) callback->Execute();
    std::lock_guard lock(lock_);
    delivery_.End();
}

// Makes the event; none when its model has been stopped or unloaded meanwhile.
std::optional<RecognitionCallback> SoundTriggerHal::ClaimCallback(const ControlTurn& turn) {
    std::lock_guard lock(lock_);
    const SoundTriggerHalClient* const client = FindClient(*turn.handle);
    if (client == nullptr || !delivery_.Claim()) return std::nullopt;
    return client->PrepareCallback(turn.payload);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
