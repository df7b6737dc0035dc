#pragma once

#include <string_view>

#include <aidl/android/hardware/audio/common/SinkMetadata.h>
#include <aidl/android/hardware/audio/common/SourceMetadata.h>

namespace vendor::quarno::brindlecove::audio::hal {

/** Gets reports of the tracks that the streams carry, on the notifier's thread. */
class StreamMetadataListener {
  public:
    virtual ~StreamMetadataListener() = default;

    /** The tracks now played through `usecase`; none when its stream stopped. */
    virtual void OnSourceMetadataChanged(
            std::string_view usecase,
            const ::aidl::android::hardware::audio::common::SourceMetadata& metadata) = 0;

    /** The tracks now recorded through `usecase`; none when its stream stopped. */
    virtual void OnSinkMetadataChanged(
            std::string_view usecase,
            const ::aidl::android::hardware::audio::common::SinkMetadata& metadata) = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal
