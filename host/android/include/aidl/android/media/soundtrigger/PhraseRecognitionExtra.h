// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/soundtrigger/ConfidenceLevel.h>
#include <android/host/parcelable.h>

#include <cstdint>
#include <vector>

namespace aidl::android::media::soundtrigger {

class PhraseRecognitionExtra {
  public:
    int32_t id = 0;
    int32_t recognitionModes = 0;
    int32_t confidenceLevel = 0;
    std::vector<ConfidenceLevel> levels{};

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", PhraseRecognitionExtra, id, recognitionModes,
                         confidenceLevel, levels);
};

}  // namespace aidl::android::media::soundtrigger
