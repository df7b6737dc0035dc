// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/audio/common/AudioFormatType.h>
#include <aidl/android/media/audio/common/PcmType.h>
#include <android/host/parcelable.h>

#include <string>

namespace aidl::android::media::audio::common {

class AudioFormatDescription {
  public:
    AudioFormatType type = AudioFormatType::DEFAULT;
    PcmType pcm = PcmType::DEFAULT;
    std::string encoding{};

    AIDL_HOST_PARCELABLE("android.media.audio.common", AudioFormatDescription, type, pcm, encoding);
};

}  // namespace aidl::android::media::audio::common
