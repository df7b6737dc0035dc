#pragma once

#include <aidl/android/media/audio/common/AudioUsage.h>

#include <string_view>
#include <vector>

#include "tools/sthal/script/grammar.h"

namespace sthal {

// Null for a name that no kind has.
const ValueKind* FindKind(std::string_view name);

// Every usage that has a name.
std::vector<::aidl::android::media::audio::common::AudioUsage> Usages();
// INVALID for a name that no usage has.
::aidl::android::media::audio::common::AudioUsage UsageOf(std::string_view name);

}  // namespace sthal
