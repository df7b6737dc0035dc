// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/soundtrigger/PhraseRecognitionExtra.h>
#include <android/host/parcelable.h>

#include <cstdint>
#include <vector>

namespace aidl::android::media::soundtrigger {

class RecognitionConfig {
  public:
    bool captureRequested = false;
    std::vector<PhraseRecognitionExtra> phraseRecognitionExtras{};
    int32_t audioCapabilities = 0;
    std::vector<uint8_t> data{};

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", RecognitionConfig, captureRequested,
                         phraseRecognitionExtras, audioCapabilities, data);
};

}  // namespace aidl::android::media::soundtrigger
