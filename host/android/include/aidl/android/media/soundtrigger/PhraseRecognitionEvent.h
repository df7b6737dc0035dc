// Host stand-in with the published declarations.
#pragma once

#include <aidl/android/media/soundtrigger/PhraseRecognitionExtra.h>
#include <aidl/android/media/soundtrigger/RecognitionEvent.h>
#include <android/host/parcelable.h>

#include <vector>

namespace aidl::android::media::soundtrigger {

class PhraseRecognitionEvent {
  public:
    RecognitionEvent common{};
    std::vector<PhraseRecognitionExtra> phraseExtras{};

    AIDL_HOST_PARCELABLE("android.media.soundtrigger", PhraseRecognitionEvent, common,
                         phraseExtras);
};

}  // namespace aidl::android::media::soundtrigger
