// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/audio/common/AudioChannelLayout.h>
#include <aidl/android/media/audio/common/AudioContentType.h>
#include <aidl/android/media/audio/common/AudioDevice.h>
#include <aidl/android/media/audio/common/AudioUsage.h>
#include <android/host/parcelable.h>

#include <optional>
#include <string>
#include <vector>

namespace aidl::android::hardware::audio::common {

class PlaybackTrackMetadata {
  public:
    ::aidl::android::media::audio::common::AudioUsage usage =
            ::aidl::android::media::audio::common::AudioUsage::INVALID;
    ::aidl::android::media::audio::common::AudioContentType contentType =
            ::aidl::android::media::audio::common::AudioContentType::UNKNOWN;
    float gain = 0.0f;
    ::aidl::android::media::audio::common::AudioChannelLayout channelMask{};
    std::optional<::aidl::android::media::audio::common::AudioDevice> sourceDevice{};
    std::vector<std::string> tags{};

    AIDL_HOST_PARCELABLE("android.hardware.audio.common", PlaybackTrackMetadata, usage, contentType,
                         gain, channelMask, sourceDevice, tags);
};

}  // namespace aidl::android::hardware::audio::common
