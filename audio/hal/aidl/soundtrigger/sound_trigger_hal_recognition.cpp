// Starting, stopping and forcing recognition.
#define LOG_TAG "StHal::SoundTriggerHal"

#include <android-base/logging.h>

#include <cerrno>
#include <string>

#include "audio/hal/aidl/soundtrigger/log_line.h"
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

int SoundTriggerHal::StartRecognition(int handle, int /*device_handle*/, int io_handle,
                                      const RecognitionConfig& config) {
    std::lock_guard lock(lock_);
    SoundTriggerHalClient* client = FindRequested("StartRecognition", handle);
    if (client == nullptr) return -EINVAL;
    client = ReclaimHotword("StartRecognition", client);
    if (client == nullptr) return -EINVAL;
    // The DSP first: a start that fails must leave no trace.
    if (is_dsp_online_) {
        if (const int result = client->RequestStartDetecting(); result != 0) {
            LOG(ERROR) << "StartRecognition: request detection failure " << result;
            return result;
        }
    } else {
        LOG(WARNING) << "StartRecognition: Dsp isn't ready, restore state for " << handle;
    }
    LOG_LINE(INFO, "StartRecognition: Started recognition of client " + std::to_string(handle) +
                           " with io_handle " + std::to_string(io_handle));
    if (&client->recognition_config_ != &config) client->recognition_config_ = config;
    client->is_started_ = true;
    client->io_handle_ = io_handle;
    PublishStartedClients();
    ProcessAecEvent(ShouldEnableAec());
    SendControlMessage();
    return 0;
}

int SoundTriggerHal::StopRecognition(int handle) {
    std::lock_guard lock(lock_);
    SoundTriggerHalClient* client = FindRequested("StopRecognition", handle);
    if (client == nullptr) return -EINVAL;
    if (!client->is_started_) {
        LOG(ERROR) << "StopRecognition: client " << handle << " is not started yet.";
        return -EINVAL;
    }
    client = ReclaimHotword("StopRecognition", client);
    if (client == nullptr) return -EINVAL;
    // On purpose for every hotword client, whichever stops, and even if the stop then fails.
    ProcessAecEvent(false);
    if (is_dsp_online_) {
        if (const int result = client->RequestStopDetecting(); result != 0) {
            LOG(ERROR) << "StopRecognition: Stops detection failure " << result;
            return result;
        }
    } else {
        LOG(WARNING) << "StopRecognition: Dsp isn't ready, restore state for " << handle;
    }
    LOG_LINE(INFO, "StopRecognition: Stopped recognition of client " + std::to_string(handle));
    client->is_started_ = false;
    PublishStartedClients();
    SendControlMessage();
    delivery_.Drop(handle);
    delivery_.WaitForCallback(handle, lock_);
    return 0;
}

int SoundTriggerHal::ForceRecognitionEvent(int handle) {
    std::lock_guard lock(lock_);
    SoundTriggerHalClient* const client = FindRequested("ForceRecognitionEvent", handle);
    if (client == nullptr) return -EINVAL;
    if (!is_dsp_online_) {
        // Not kept: a forced event is worth nothing later.
        LOG(WARNING) << "ForceRecognitionEvent: Dsp isn't ready, ignore request for " << handle;
        return 0;
    }
    LOG(INFO) << "ForceRecognitionEvent: request force trigger for client: " << handle;
    const int result = client->TriggerForceRecognition();
    if (result != 0) {
        LOG(ERROR) << "ForceRecognitionEvent: Force trigger detection failure " << result;
    }
    return result;
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
