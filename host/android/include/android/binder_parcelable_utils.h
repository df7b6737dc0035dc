// Host stand-in with the published declarations: the holder in which a parcelable carries a
// vendor's own parcelable.
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <concepts>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace ndk {

typedef int32_t parcelable_stability_t;
enum {
    STABILITY_LOCAL,
    STABILITY_VINTF,
};

/**
 * Carries at most one parcelable of any type. The receiver asks for the type it expects and must
 * look at the optional, not only at the status. Copies share the value, which nobody changes.
 *
 * Compares by identity, as the platform's does: a copy is not equal to its original.
 */
class AParcelableHolder {
  public:
    AParcelableHolder() = delete;
    explicit AParcelableHolder(parcelable_stability_t stability) : stability_(stability) {}

    // Drops what was held. On failure the holder is as it was; STATUS_BAD_VALUE if T promises less
    // stability than the holder, STATUS_FDS_NOT_ALLOWED if it owns a descriptor.
    template <typename T>
    binder_status_t setParcelable(const T& value) {
        if (stability_ > T::_aidl_stability) return STATUS_BAD_VALUE;
        if constexpr (std::copy_constructible<T>) {
            descriptor_ = T::descriptor;
            value_ = std::make_shared<const T>(value);
            return STATUS_OK;
        } else {
            return STATUS_FDS_NOT_ALLOWED;
        }
    }

    // STATUS_OK without a value for an empty holder and for one that holds another type; a status
    // other than STATUS_OK, and no value, for what cannot be read as a T.
    template <typename T>
    binder_status_t getParcelable(std::optional<T>* value) const {
        value->reset();
        if (descriptor_.empty() || descriptor_ != T::descriptor) return STATUS_OK;
        if constexpr (std::copy_constructible<T>) {
            if (value_ != nullptr) {
                value->emplace(*static_cast<const T*>(value_.get()));
                return STATUS_OK;
            }
        }
        return STATUS_BAD_VALUE;
    }

    void reset();
    [[nodiscard]] parcelable_stability_t getStability() const { return stability_; }

    // STATUS_INVALID_OPERATION: nothing leaves the process here, so there is no layout for it.
    binder_status_t readFromParcel(const AParcel* parcel);
    binder_status_t writeToParcel(AParcel* parcel) const;

    // Host only: what a torn or hostile transfer leaves in the holder, a T that cannot be read.
    template <typename T>
    void hostSetUnreadable() {
        descriptor_ = T::descriptor;
        value_.reset();
    }

    bool operator==(const AParcelableHolder& rhs) const { return this == &rhs; }
    bool operator!=(const AParcelableHolder& rhs) const { return this != &rhs; }
    bool operator<(const AParcelableHolder& rhs) const { return this < &rhs; }
    bool operator<=(const AParcelableHolder& rhs) const { return this <= &rhs; }
    bool operator>(const AParcelableHolder& rhs) const { return this > &rhs; }
    bool operator>=(const AParcelableHolder& rhs) const { return this >= &rhs; }

  private:
    parcelable_stability_t stability_;
    std::string descriptor_;             // Empty: nothing is held.
    std::shared_ptr<const void> value_;  // Of the type that descriptor_ names; null: unreadable.
};

}  // namespace ndk
