// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/audio/common/AudioConfig.h>
#include <aidl/android/media/soundtrigger/RecognitionStatus.h>
#include <aidl/android/media/soundtrigger/SoundModelType.h>
#include <android/host/parcelable.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace aidl::android::media::soundtrigger {

class RecognitionEvent {
  public:
    RecognitionStatus status = RecognitionStatus::INVALID;
    SoundModelType type = SoundModelType::INVALID;
    bool captureAvailable = false;
    int32_t captureDelayMs = 0;
    int32_t capturePreambleMs = 0;
    bool triggerInData = false;
    std::optional<::aidl::android::media::audio::common::AudioConfig> audioConfig{};
    std::vector<uint8_t> data{};
    bool recognitionStillActive = false;

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", RecognitionEvent, status, type,
                         captureAvailable, captureDelayMs, capturePreambleMs, triggerInData,
                         audioConfig, data, recognitionStillActive);
};

}  // namespace aidl::android::media::soundtrigger
