#include <aidl/android/hardware/audio/core/VendorParameter.h>
#include <aidl/android/media/audio/common/AudioDevice.h>
#include <aidl/android/media/audio/common/AudioFormatType.h>
#include <aidl/android/media/audio/common/AudioSource.h>
#include <aidl/android/media/audio/common/AudioStreamType.h>
#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/audio/common/Boolean.h>
#include <aidl/android/media/audio/common/PcmType.h>
#include <aidl/android/media/soundtrigger/ModelParameterRange.h>
#include <aidl/android/media/soundtrigger/PhraseRecognitionEvent.h>
#include <aidl/android/media/soundtrigger/PhraseSoundModel.h>
#include <aidl/android/media/soundtrigger/RecognitionMode.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <type_traits>

namespace {

using aidl::android::hardware::audio::core::VendorParameter;
using aidl::android::media::audio::common::AudioChannelLayout;
using aidl::android::media::audio::common::AudioConfig;
using aidl::android::media::audio::common::AudioDevice;
using aidl::android::media::audio::common::AudioFormatType;
using aidl::android::media::audio::common::AudioSource;
using aidl::android::media::audio::common::AudioStreamType;
using aidl::android::media::audio::common::AudioUsage;
using aidl::android::media::audio::common::Boolean;
using aidl::android::media::audio::common::PcmType;
using aidl::android::media::soundtrigger::ModelParameterRange;
using aidl::android::media::soundtrigger::PhraseRecognitionEvent;
using aidl::android::media::soundtrigger::PhraseSoundModel;
using aidl::android::media::soundtrigger::RecognitionEvent;
using aidl::android::media::soundtrigger::RecognitionMode;
using aidl::android::media::soundtrigger::RecognitionStatus;
using aidl::android::media::soundtrigger::SoundModelType;

static_assert(std::is_aggregate_v<Boolean>, "code on a phone writes Boolean{.value = true}");
static_assert(std::is_copy_assignable_v<VendorParameter>);
static_assert(!std::is_copy_constructible_v<PhraseSoundModel> &&
              std::is_move_assignable_v<PhraseSoundModel>);

struct Unstable : Boolean {
    static constexpr ndk::parcelable_stability_t _aidl_stability = ndk::STABILITY_LOCAL;
};

// A value with every kind of field in it: nested, optional, union, vector, text, all scalars.
PhraseRecognitionEvent FullEvent() {
    PhraseRecognitionEvent event;
    event.common.status = RecognitionStatus::FORCED;
    event.common.type = SoundModelType::KEYPHRASE;
    event.common.captureAvailable = true;
    event.common.audioConfig.emplace();
    event.common.audioConfig->base.channelMask =
            AudioChannelLayout::make<AudioChannelLayout::layoutMask>(
                    AudioChannelLayout::LAYOUT_STEREO);
    event.common.audioConfig->base.format.encoding = "audio/raw";
    event.common.audioConfig->frameCount = int64_t{1} << 40;
    event.common.data = {0, 65, 255};
    event.phraseExtras.push_back({.id = 3, .confidenceLevel = 90, .levels = {{7, 80}, {8, 70}}});
    return event;
}

TEST(ToStringTest, NestedValueIsSpelledAsOnAPhone) {
    PhraseRecognitionEvent event;
    event.common.data = {0, 65, 255};
    event.common.captureAvailable = true;
    event.common.type = static_cast<SoundModelType>(9);
    event.phraseExtras.push_back({.id = 3, .levels = {{7, 80}, {8, 70}}});
    EXPECT_EQ(
            "PhraseRecognitionEvent{common: RecognitionEvent{status: INVALID, type: 9, "
            "captureAvailable: true, captureDelayMs: 0, capturePreambleMs: 0, triggerInData: "
            "false, "
            "audioConfig: (null), data: [0, 65, 255], recognitionStillActive: false}, "
            "phraseExtras: [PhraseRecognitionExtra{id: 3, recognitionModes: 0, confidenceLevel: 0, "
            "levels: [ConfidenceLevel{userId: 7, levelPercent: 80}, "
            "ConfidenceLevel{userId: 8, levelPercent: 70}]}]}",
            event.toString());
    EXPECT_EQ(
            "AudioConfigBase{sampleRate: 0, channelMask: AudioChannelLayout{layoutMask: 3}, "
            "format: AudioFormatDescription{type: DEFAULT, pcm: DEFAULT, encoding: audio/raw}}",
            FullEvent().common.audioConfig->base.toString());
    EXPECT_EQ("AudioDevice{}", AudioDevice{}.toString());
}

TEST(ToStringTest, EnumNamesTheFirstOfEqualValuesAndNumbersTheUnknown) {
    EXPECT_EQ("DEFAULT", toString(AudioFormatType::NON_PCM));
    EXPECT_EQ("SYS_RESERVED_INVALID", toString(AudioFormatType::SYS_RESERVED_INVALID));
    EXPECT_EQ("-128", toString(static_cast<AudioFormatType>(-128)));
    EXPECT_EQ("18", toString(static_cast<AudioUsage>(18))) << "there is none between 17 and 1000";
    // Values out of the order that their names suggest.
    EXPECT_EQ("ANNOUNCEMENT", toString(static_cast<AudioUsage>(1003)));
    EXPECT_EQ("INT_24_BIT", toString(static_cast<PcmType>(5)));
    EXPECT_EQ("HOTWORD", toString(static_cast<AudioSource>(1999)));
    EXPECT_EQ("INVALID", toString(static_cast<AudioStreamType>(-2)));
    EXPECT_EQ("GENERIC_TRIGGER", toString(static_cast<RecognitionMode>(8)));
}

TEST(ComparisonTest, FirstDifferingMemberDecides) {
    const ModelParameterRange low{.minInclusive = 1, .maxInclusive = 9};
    const ModelParameterRange high{.minInclusive = 2, .maxInclusive = 0};
    EXPECT_TRUE(low < high && low <= high && high > low && high >= low && low != high);
    EXPECT_FALSE(low > high || low >= high || high < low || high <= low || low == high);

    PhraseRecognitionEvent changed = FullEvent();
    EXPECT_TRUE(changed == FullEvent() && changed <= FullEvent() && !(changed < FullEvent()));
    changed.phraseExtras[0].levels[1].levelPercent = 71;
    EXPECT_TRUE(FullEvent() < changed && changed != FullEvent()) << "the last member counts, too";
    changed.common.audioConfig.reset();
    EXPECT_TRUE(changed < FullEvent()) << "an absent value comes first";
}

TEST(AudioChannelLayoutTest, HoldsOneTagWithItsValue) {
    AudioChannelLayout layout;
    EXPECT_EQ(AudioChannelLayout::none, layout.getTag());
    layout.set<AudioChannelLayout::indexMask>(3);
    const AudioChannelLayout copy = layout;
    layout.get<AudioChannelLayout::indexMask>() = 7;
    EXPECT_EQ(3, copy.get<AudioChannelLayout::indexMask>());
    EXPECT_NE(copy, AudioChannelLayout::make<AudioChannelLayout::layoutMask>(3)) << "same number";
    EXPECT_DEATH((void)copy.get<AudioChannelLayout::layoutMask>(), "another tag");
}

TEST(HolderTest, GivesBackWhatItHoldsAndNothingElse) {
    VendorParameter parameter{.id = "key"};
    std::optional<Boolean> value = Boolean{};
    EXPECT_EQ(STATUS_OK, parameter.ext.getParcelable(&value));
    EXPECT_FALSE(value.has_value()) << "an empty holder left the caller's old value";

    ASSERT_EQ(STATUS_OK, parameter.ext.setParcelable(Boolean{.value = true}));
    const VendorParameter copy = parameter;
    parameter.ext.reset();
    EXPECT_EQ(STATUS_OK, copy.ext.getParcelable(&value));
    EXPECT_TRUE(value.has_value() && value->value);
    EXPECT_EQ(STATUS_OK, parameter.ext.getParcelable(&value));
    EXPECT_FALSE(value.has_value()) << "a reset holder is empty";

    std::optional<ModelParameterRange> other = ModelParameterRange{};
    EXPECT_EQ(STATUS_OK, copy.ext.getParcelable(&other));
    EXPECT_FALSE(other.has_value()) << "the holder's type is another";
}

TEST(HolderTest, RefusesWhatItCannotCarryAndKeepsWhatItHad) {
    ndk::AParcelableHolder holder(ndk::STABILITY_VINTF);
    ASSERT_EQ(STATUS_OK, holder.setParcelable(Boolean{.value = true}));
    EXPECT_NE(STATUS_OK, holder.setParcelable(PhraseSoundModel{})) << "it owns a descriptor";
    EXPECT_NE(STATUS_OK, holder.setParcelable(Unstable{}));
    EXPECT_NE(STATUS_OK, holder.readFromParcel(nullptr)) << "there is no transfer on a PC";
    std::optional<Boolean> value;
    EXPECT_EQ(STATUS_OK, holder.getParcelable(&value));
    EXPECT_TRUE(value.has_value() && value->value);
}

TEST(HolderTest, UnreadableValueGivesAStatusAndNoValueUntilAnotherIsSet) {
    ndk::AParcelableHolder holder(ndk::STABILITY_VINTF);
    ASSERT_EQ(STATUS_OK, holder.setParcelable(Boolean{.value = true}));
    holder.hostSetUnreadable<Boolean>();
    std::optional<Boolean> value = Boolean{};
    EXPECT_NE(STATUS_OK, holder.getParcelable(&value));
    EXPECT_FALSE(value.has_value());
    std::optional<ModelParameterRange> other;
    EXPECT_EQ(STATUS_OK, holder.getParcelable(&other)) << "the type is looked at first";

    ASSERT_EQ(STATUS_OK, holder.setParcelable(Boolean{.value = true}));
    EXPECT_EQ(STATUS_OK, holder.getParcelable(&value));
    EXPECT_TRUE(value.has_value() && value->value);
}

}  // namespace
