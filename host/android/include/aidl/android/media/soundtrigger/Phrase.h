// Host stand-in with the published declarations.
#pragma once

#include <android/host/parcelable.h>

#include <cstdint>
#include <string>
#include <vector>

namespace aidl::android::media::soundtrigger {

class Phrase {
  public:
    int32_t id = 0;
    int32_t recognitionModes = 0;
    std::vector<int32_t> users{};
    std::string locale{};
    std::string text{};

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", Phrase, id, recognitionModes, users, locale,
                         text);
};

}  // namespace aidl::android::media::soundtrigger
