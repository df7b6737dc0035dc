// Host stand-in with the published declarations, cut to the masks in use.
#pragma once

#include <android/host/parcelable.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <variant>

namespace aidl::android::media::audio::common {

/** A union: exactly one of the tags has a value, which is "none" with 0 to begin with. */
class AudioChannelLayout {
  public:
    enum class Tag : int32_t {
        none = 0,
        invalid = 1,
        indexMask = 2,
        layoutMask = 3,
        voiceMask = 4
    };
    static constexpr Tag none = Tag::none;
    static constexpr Tag invalid = Tag::invalid;
    static constexpr Tag indexMask = Tag::indexMask;
    static constexpr Tag layoutMask = Tag::layoutMask;
    static constexpr Tag voiceMask = Tag::voiceMask;

    enum : int32_t { LAYOUT_MONO = 1 };
    enum : int32_t { LAYOUT_STEREO = 3 };

    template <Tag tag, typename... Args>
    static AudioChannelLayout make(Args&&... args) {
        AudioChannelLayout layout;
        layout.set<tag>(std::forward<Args>(args)...);
        return layout;
    }

    Tag getTag() const { return static_cast<Tag>(value_.index()); }

    // Getting another tag than the one that is set ends the process.
    template <Tag tag>
    const auto& get() const {
        return *::ndk::host::RequireTag(std::get_if<static_cast<size_t>(tag)>(&value_));
    }
    template <Tag tag>
    auto& get() {
        return *::ndk::host::RequireTag(std::get_if<static_cast<size_t>(tag)>(&value_));
    }

    template <Tag tag, typename... Args>
    void set(Args&&... args) {
        value_.emplace<static_cast<size_t>(tag)>(std::forward<Args>(args)...);
    }

    // Nothing leaves the process here: there is no layout to read or write.
    binder_status_t readFromParcel(const AParcel*) { return STATUS_INVALID_OPERATION; }
    binder_status_t writeToParcel(AParcel*) const { return STATUS_INVALID_OPERATION; }
    std::string toString() const;

    bool operator==(const AudioChannelLayout& rhs) const { return value_ == rhs.value_; }
    bool operator!=(const AudioChannelLayout& rhs) const { return value_ != rhs.value_; }
    bool operator<(const AudioChannelLayout& rhs) const { return value_ < rhs.value_; }
    bool operator<=(const AudioChannelLayout& rhs) const { return value_ <= rhs.value_; }
    bool operator>(const AudioChannelLayout& rhs) const { return value_ > rhs.value_; }
    bool operator>=(const AudioChannelLayout& rhs) const { return value_ >= rhs.value_; }

    static constexpr ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_VINTF;
    inline static const char* descriptor = "android.media.audio.common.AudioChannelLayout";

  private:
    std::variant<int32_t, int32_t, int32_t, int32_t, int32_t> value_;
};

[[nodiscard]] static inline std::string toString(AudioChannelLayout::Tag tag) {
    return ::ndk::host::EnumeratorName(
            "none = 0, invalid = 1, indexMask = 2, layoutMask = 3, voiceMask = 4",
            static_cast<int32_t>(tag));
}

inline std::string AudioChannelLayout::toString() const {
    return std::visit(
            [this](int32_t value) {
                return "AudioChannelLayout{" + common::toString(getTag()) + ": " +
                       std::to_string(value) + "}";
            },
            value_);
}

}  // namespace aidl::android::media::audio::common
