// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/audio/common/AudioConfigBase.h>
#include <aidl/android/media/audio/common/AudioOffloadInfo.h>
#include <android/host/parcelable.h>

#include <cstdint>

namespace aidl::android::media::audio::common {

class AudioConfig {
  public:
    AudioConfigBase base{};
    AudioOffloadInfo offloadInfo{};
    int64_t frameCount = 0;

    AIDL_HOST_PARCELABLE("android.media.audio.common", AudioConfig, base, offloadInfo, frameCount);
};

}  // namespace aidl::android::media::audio::common
