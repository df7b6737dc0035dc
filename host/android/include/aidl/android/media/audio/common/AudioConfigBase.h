// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/audio/common/AudioChannelLayout.h>
#include <aidl/android/media/audio/common/AudioFormatDescription.h>
#include <android/host/parcelable.h>

#include <cstdint>

namespace aidl::android::media::audio::common {

class AudioConfigBase {
  public:
    int32_t sampleRate = 0;
    AudioChannelLayout channelMask{};
    AudioFormatDescription format{};

    AIDL_HOST_PARCELABLE("android.media.audio.common", AudioConfigBase, sampleRate, channelMask,
                         format);
};

}  // namespace aidl::android::media::audio::common
