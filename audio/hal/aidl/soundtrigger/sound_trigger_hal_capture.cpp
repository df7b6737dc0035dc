// Internal recognition, and the audio that a capture stream reads.
#define LOG_TAG "StHal::SoundTriggerHal"

#include <android-base/logging.h>

#include <cerrno>
#include <optional>

#include "audio/hal/aidl/soundtrigger/silence.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

int SoundTriggerHal::InternalForceRecognition() {
    std::lock_guard lock(lock_);
    if (!is_dsp_online_) {
        LOG(ERROR) << "InternalForceRecognition: Dsp isn't ready, ignore request";
        return -EINVAL;
    }
    std::optional<int32_t> target;
    for (const auto& [handle, client] : clients_) {
        if (client->engine_type_ != EngineType::Hotword) continue;
        const RuntimeState state = client->state();
        if (state == RuntimeState::CallbackProcessing || state == RuntimeState::Buffering) {
            LOG(ERROR) << "InternalForceRecognition: Hotword in progress, cannot do the request";
            return -EINVAL;
        }
        target = handle;
    }
    if (!target) {
        target = SmallestFreeHandle(0);  // 0 is none of the framework's handles.
        if (*target > properties_.maxSoundModels) {
            LOG(ERROR) << "InternalForceRecognition: Loaded count " << *target
                       << " is over max number " << properties_.maxSoundModels;
            return -EINVAL;
        }
        if (SoundTriggerHalClient* const internal_client = AddClient(*target)) {
            internal_client->is_internal_client_ = true;
            (void)internal_client->set_engine_type(EngineType::Hotword);
            LOG(INFO) << "InternalForceRecognition: Started internal recognition of client "
                      << *target;
        }
    }
    SoundTriggerHalClient* const client = FindClient(*target);
    if (client == nullptr) {
        LOG(ERROR) << "InternalForceRecognition: Client doesn't exist with handle " << *target;
        return -EINVAL;
    }
    if (const int result = client->RequestInternalForceRecognition(); result != 0) {
        LOG(ERROR) << "InternalForceRecognition: Request internal reocognition failure " << result;
        // On purpose, the framework's model, too: what the DSP runs by now is not known, and
        // loading it anew settles that.
        RemoveClient(*target);
        return result;
    }
    ProcessAecEvent(ShouldEnableAec());
    client->is_internal_force_active_ = true;
    SendControlMessage();
    return 0;
}

int SoundTriggerHal::StopInternalForceRecognition() {
    std::lock_guard lock(lock_);
    return StopInternalForce();
}

int SoundTriggerHal::StopInternalForce() {
    SoundTriggerHalClient* client = nullptr;
    for (const auto& [handle, candidate] : clients_) {
        if (candidate->engine_type_ == EngineType::Hotword &&
            candidate->is_internal_force_active_) {
            client = candidate.get();
        }
    }
    if (client == nullptr) return 0;
    if (!is_dsp_online_) {
        SendControlMessage();
        return 0;
    }
    const int stop_result = client->RequestStopDetecting();
    ProcessAecEvent(ShouldEnableAec());
    const int result = client->is_internal_client_ ? UnloadInternalClient(client)
                                                   : ResumeBorrowedClient(client, stop_result);
    if (result != 0) {
        // No blank before the number: log parsers know the line that way.
        LOG(ERROR) << "StopInternalForce: reset hotword model failure" << result;
        return result;
    }
    SendControlMessage();
    return 0;
}

int SoundTriggerHal::UnloadInternalClient(SoundTriggerHalClient* client) {
    const int32_t handle = client->handle_;
    const int result = client->RequestUnloadModel();
    LOG(INFO) << "StopInternalForce: Unload internal client with " << handle;
    RemoveClient(handle);
    return result;
}

// Puts the framework's client back to what the framework wants of it. That the stop failed counts
// only where no start follows: what matters is whether the last state was reached.
int SoundTriggerHal::ResumeBorrowedClient(SoundTriggerHalClient* client, int stop_result) {
    client->is_internal_force_active_ = false;
    if (!client->is_started_) return stop_result;
    const int result = client->RequestStartDetecting();
    ProcessAecEvent(ShouldEnableAec());
    return result;
}

int SoundTriggerHal::StartBufferingByIoHandle(int io_handle, bool is_internal_forced) {
    std::lock_guard lock(lock_);
    SoundTriggerHalClient* const client = FindToBuffer(io_handle, is_internal_forced);
    if (client == nullptr) return -EINVAL;
    // A client that is buffering serves another stream.
    if (client->state() == RuntimeState::Buffering || client->RequestStartBuffering() < 0) {
        LOG(ERROR) << "StartBufferingByIoHandle: request buffering from "
                   << toString(client->state());
        return -EINVAL;
    }
    return is_internal_forced ? EngineType::Hotword : client->engine_type_;
}

SoundTriggerHalClient* SoundTriggerHal::FindToBuffer(int io_handle, bool is_internal_forced) const {
    for (const auto& [handle, client] : clients_) {
        if (is_internal_forced ? client->is_internal_force_active_
                               : client->is_started_ && client->io_handle_ == io_handle) {
            return client.get();
        }
    }
    return nullptr;
}

int SoundTriggerHal::ReadBuffer(int engine_type, char* buffer, uint32_t size, int channel_count) {
    if (!is_dsp_online_) {
        LOG(VERBOSE) << "ReadBuffer: Dsp isn't online, can't read the data.";
        return -ENODEV;
    }
    const int result = adapter_->ReadDspBuffer(engine_type, buffer, size, channel_count);
    if (result < 0) return DeliverSilence(result, buffer, size);
    return result;
}

int64_t SoundTriggerHal::ReadTimestamp(int engine_type) {
    return adapter_->ReadDspTimestamp(engine_type);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
