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

// While the DSP restarts, its node stays readable and every read fails: without a pause the loop
// would spin, and fill the log, until the DSP is reported offline. The same goes for a node that
// fails in another way than a restart's, or is readable and holds no record.
constexpr std::chrono::milliseconds kFailedReadPause{100};

// A number that no engine has: ReadDspNotification leaves it where there was no whole record.
constexpr int kNoRecord = -1;

// select() knows no descriptor beyond this; FD_SET would write past the end of the set.
bool IsSelectable(int fd) {
    return fd >= 0 && fd < FD_SETSIZE;
}

}  // namespace

struct SoundTriggerHal::WaitSet {
    fd_set read_set;
    int notification_fd = -1;  // Negative when detections are not watched.
    int highest_fd = -1;
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
        WaitSet wait_set = PrepareWaitSet();
        // No time-out: every reason to look again comes through one of the two descriptors.
        const int ready = select(wait_set.highest_fd + 1, &wait_set.read_set, nullptr, nullptr,
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
        HandleReady(wait_set);
    }
    CloseControlPipe();
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

void SoundTriggerHal::CloseControlPipe() {
    std::lock_guard lock(lock_);
    control_pipe_.Close();
}

// The thread's last act: one release more than there were holds, kept on purpose. It relies on
// `lock_` being a plain mutex, for which it has no effect while nobody holds it. In destruction
// nobody does: the destructor waits for this thread without the lock. After a select() that failed
// for good, which only a broken descriptor set or no memory brings about, somebody may.
void SoundTriggerHal::ReleaseLockOnceMore() {
    lock_.unlock();
}

SoundTriggerHal::WaitSet SoundTriggerHal::PrepareWaitSet() {
    std::lock_guard lock(lock_);
    WaitSet wait_set;
    FD_ZERO(&wait_set.read_set);
    wait_set.highest_fd = control_pipe_.read_end();
    FD_SET(wait_set.highest_fd, &wait_set.read_set);
    const bool is_watching = HasActiveClient() && is_dsp_online_;
    // A DSP that went down and came back between two turns left a descriptor of its former life.
    if (!is_watching || is_notification_stale_) adapter_->ResetNotificationFileDescriptor();
    is_notification_stale_ = false;
    if (!is_watching) return wait_set;
    const int notification_fd = adapter_->GetNotificationFileDescriptor();
    if (!IsSelectable(notification_fd)) {
        LOG(WARNING) << "ControlThreadLoop: Can't get notification fd.";
        return wait_set;
    }
    FD_SET(notification_fd, &wait_set.read_set);
    wait_set.notification_fd = notification_fd;
    wait_set.highest_fd = std::max(wait_set.highest_fd, notification_fd);
    return wait_set;
}

void SoundTriggerHal::HandleReady(const WaitSet& ready) {
    std::optional<int32_t> detected;  // Whose event is to be delivered.
    std::string payload;  // New in each turn: a record without text must not show an older one's.
    int result = 0;
    bool is_record_read = true;
    {
        std::lock_guard lock(lock_);
        if (FD_ISSET(control_pipe_.read_end(), &ready.read_set)) DrainControlPipe();
        if (ready.notification_fd >= 0 && FD_ISSET(ready.notification_fd, &ready.read_set) &&
            is_dsp_online_) {
            int model_type = kNoRecord;
            const SoundTriggerHalClient* const client =
                    ReadDetection(&model_type, &payload, &result);
            is_record_read = model_type != kNoRecord;
            if (client != nullptr && result == 0) {
                detected = client->handle_;
                delivery_.Begin(*detected);
            }
        }
    }
    if (detected) DeliverRecognition(*detected, payload);
    if (result == -ENODEV) {
        LOG(WARNING) << "ControlThreadLoop: Wait for dsp interface when restarting.";
    }
    if (result == -ENODEV || !is_record_read) std::this_thread::sleep_for(kFailedReadPause);
}

void SoundTriggerHal::DrainControlPipe() {
    // All of it: however many messages there are, they ask for one and the same rebuild.
    for (ssize_t size; (size = control_pipe_.TakeMessage()) > 0;) {
        if (size != WakeUpPipe::kMessageBytes) {
            LOG(WARNING) << "ControlThreadLoop: invalid cmd size: " << size;
            return;
        }
        LOG_LINE(INFO, "ControlThreadLoop: get update command");
    }
}

// Takes one detection from the DSP and moves its client on. Returns the client whose event is to be
// delivered if `result`, the last result on the way, is 0. `model_type` stays as it is where no
// record was read.
SoundTriggerHalClient* SoundTriggerHal::ReadDetection(int* model_type, std::string* payload,
                                                      int* result) {
    *result = adapter_->ReadDspNotification(model_type, *payload);
    if (*result < 0) {
        LOG(ERROR) << "ControlThreadLoop: read trigger event failure: " << *result;
        return nullptr;
    }
    LOG_LINE(INFO, "ControlThreadLoop: read trigger event with model type: " +
                           std::to_string(*model_type == kNoRecord ? 0 : *model_type));
    const auto found = std::find_if(clients_.begin(), clients_.end(), [&](const auto& entry) {
        const SoundTriggerHalClient& client = *entry.second;
        return client.is_started_ && client.engine_type_ == *model_type;
    });
    if (found == clients_.end()) return nullptr;
    SoundTriggerHalClient* const client = found->second.get();
    // A detection during an internal recognition belongs to that recognition, not to the framework.
    if (client->is_internal_force_active_) return nullptr;
    LOG_LINE(INFO, "ControlThreadLoop: received " + toString(client->engine_type_) +
                           " recognition with payload: " + *payload);
    *result = client->RequestCallbackProcessing();
    if (*result < 0) {
        LOG(ERROR) << "ControlThreadLoop: requested CallbackProcessing failure from "
                   << toString(client->state());
    }
    return client;
}

// --- delivery ---

void SoundTriggerHal::DeliverRecognition(int32_t handle, const std::string& payload) {
    // Without the lock, since the framework may answer the event with any request.
    if (const auto callback = ClaimCallback(handle, payload)) callback->Execute();
    std::lock_guard lock(lock_);
    delivery_.End();
}

// Makes the event; none when its model has been stopped or unloaded since the detection was read.
std::optional<RecognitionCallback> SoundTriggerHal::ClaimCallback(int32_t handle,
                                                                  const std::string& payload) {
    std::lock_guard lock(lock_);
    const SoundTriggerHalClient* const client = FindClient(handle);
    if (client == nullptr || !delivery_.Claim()) return std::nullopt;
    return client->PrepareCallback(payload);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
