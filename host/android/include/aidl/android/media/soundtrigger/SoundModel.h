// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/soundtrigger/SoundModelType.h>
#include <android/binder_auto_utils.h>
#include <android/host/parcelable.h>

#include <cstdint>
#include <string>

namespace aidl::android::media::soundtrigger {

class SoundModel {
  public:
    SoundModelType type = SoundModelType::INVALID;
    std::string uuid{};
    std::string vendorUuid{};
    ::ndk::ScopedFileDescriptor data{};
    int32_t dataSize = 0;

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", SoundModel, type, uuid, vendorUuid, data,
                         dataSize);
};

}  // namespace aidl::android::media::soundtrigger
