// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

class Properties {
  public:
    std::string implementor{};
    std::string description{};
    int32_t version = 0;
    std::string uuid{};
    std::string supportedModelArch{};
    int32_t maxSoundModels = 0;
    int32_t maxKeyPhrases = 0;
    int32_t maxUsers = 0;
    int32_t recognitionModes = 0;
    bool captureTransition = false;
    int32_t maxBufferMs = 0;
    bool concurrentCapture = false;
    bool triggerInEvent = false;
    int32_t powerConsumptionMw = 0;
    int32_t audioCapabilities = 0;

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", Properties, implementor, description,
                         version, uuid, supportedModelArch, maxSoundModels, maxKeyPhrases, maxUsers,
                         recognitionModes, captureTransition, maxBufferMs, concurrentCapture,
                         triggerInEvent, powerConsumptionMw, audioCapabilities);
};

}  // namespace aidl::android::media::soundtrigger
