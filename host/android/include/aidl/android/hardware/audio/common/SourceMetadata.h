// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/hardware/audio/common/PlaybackTrackMetadata.h>
#include <android/host/parcelable.h>

#include <vector>

namespace aidl::android::hardware::audio::common {

class SourceMetadata {
  public:
    std::vector<PlaybackTrackMetadata> tracks{};

    AIDL_HOST_PARCELABLE("android.hardware.audio.common", SourceMetadata, tracks);
};

}  // namespace aidl::android::hardware::audio::common
