// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/audio/common/AudioConfigBase.h>
#include <aidl/android/media/audio/common/AudioEncapsulationMode.h>
#include <aidl/android/media/audio/common/AudioStreamType.h>
#include <aidl/android/media/audio/common/AudioUsage.h>
#include <android/host/parcelable.h>

#include <cstdint>

namespace aidl::android::media::audio::common {

class AudioOffloadInfo {
  public:
    AudioConfigBase base{};
    AudioStreamType streamType = AudioStreamType::INVALID;
    int32_t bitRatePerSecond = 0;
    int64_t durationUs = 0;
    bool hasVideo = false;
    bool isStreaming = false;
    int32_t bitWidth = 16;
    int32_t offloadBufferSize = 0;
    AudioUsage usage = AudioUsage::INVALID;
    AudioEncapsulationMode encapsulationMode = AudioEncapsulationMode::INVALID;
    int32_t contentId = 0;
    int32_t syncId = 0;

    AIDL_HOST_PARCELABLE("android.media.audio.common", AudioOffloadInfo, base, streamType,
                         bitRatePerSecond, durationUs, hasVideo, isStreaming, bitWidth,
                         offloadBufferSize, usage, encapsulationMode, contentId, syncId);
};

}  // namespace aidl::android::media::audio::common
