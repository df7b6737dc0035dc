// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/soundtrigger/Phrase.h>
#include <aidl/android/media/soundtrigger/SoundModel.h>
#include <android/host/parcelable.h>

#include <vector>

namespace aidl::android::media::soundtrigger {

class PhraseSoundModel {
  public:
    SoundModel common{};
    std::vector<Phrase> phrases{};

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", PhraseSoundModel, common, phrases);
};

}  // namespace aidl::android::media::soundtrigger
