// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/hardware/audio/common/RecordTrackMetadata.h>
#include <android/host/parcelable.h>

#include <vector>

namespace aidl::android::hardware::audio::common {

class SinkMetadata {
  public:
    std::vector<RecordTrackMetadata> tracks{};

    AIDL_HOST_PARCELABLE("android.hardware.audio.common", SinkMetadata, tracks);
};

}  // namespace aidl::android::hardware::audio::common
