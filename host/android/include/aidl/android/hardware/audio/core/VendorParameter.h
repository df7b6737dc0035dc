// Host stand-in with the published declarations.
#pragma once

#include <android/binder_parcelable_utils.h>
#include <android/host/parcelable.h>

#include <string>

namespace aidl::android::hardware::audio::core {

class VendorParameter {
  public:
    std::string id{};
    ::ndk::AParcelableHolder ext{::ndk::STABILITY_VINTF};

    AIDL_HOST_PARCELABLE("android.hardware.audio.core", VendorParameter, id, ext);
};

}  // namespace aidl::android::hardware::audio::core
