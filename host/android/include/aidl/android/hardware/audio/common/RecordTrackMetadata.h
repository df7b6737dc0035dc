// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/audio/common/AudioChannelLayout.h>
#include <aidl/android/media/audio/common/AudioDevice.h>
#include <aidl/android/media/audio/common/AudioSource.h>
#include <android/host/parcelable.h>

#include <optional>
#include <string>
#include <vector>

namespace aidl::android::hardware::audio::common {

class RecordTrackMetadata {
  public:
    ::aidl::android::media::audio::common::AudioSource source =
            ::aidl::android::media::audio::common::AudioSource::SYS_RESERVED_INVALID;
    float gain = 0.0f;
    std::optional<::aidl::android::media::audio::common::AudioDevice> destinationDevice{};
    ::aidl::android::media::audio::common::AudioChannelLayout channelMask{};
    std::vector<std::string> tags{};

    AIDL_HOST_PARCELABLE("android.hardware.audio.common", RecordTrackMetadata, source, gain,
                         destinationDevice, channelMask, tags);
};

}  // namespace aidl::android::hardware::audio::common
