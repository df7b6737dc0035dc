// Host stand-in with the published declarations: the holder in which a parcelable carries a
// vendor's own parcelable.
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ndk {

typedef int32_t parcelable_stability_t;
enum {
    STABILITY_LOCAL,
    STABILITY_VINTF,
};

/**
 * Carries at most one parcelable of any type, as its descriptor and its parcelled bytes. The
 * receiver asks for the type it expects and must look at the optional, not only at the status.
 *
 * Compares by identity, as the platform's does: a copy is not equal to its original.
 */
class AParcelableHolder {
  public:
    AParcelableHolder() = delete;
    explicit AParcelableHolder(parcelable_stability_t stability) : stability_(stability) {}

    // Drops what was held. On failure the holder is as it was; STATUS_BAD_VALUE if T promises less
    // stability than the holder.
    template <typename T>
    binder_status_t setParcelable(const T& value) {
        if (stability_ > T::_aidl_stability) return STATUS_BAD_VALUE;
        AParcel parcel;
        const binder_status_t status = value.writeToParcel(&parcel);
        if (status == STATUS_OK) hostSetRaw(T::descriptor, parcel.bytes());
        return status;
    }

    // STATUS_OK without a value for an empty holder and for one that holds another type; a status
    // other than STATUS_OK, and no value, for bytes that are no T.
    template <typename T>
    binder_status_t getParcelable(std::optional<T>* value) const {
        value->reset();
        if (descriptor_.empty() || descriptor_ != T::descriptor) return STATUS_OK;
        const AParcel parcel(bytes_);
        T read;
        const binder_status_t status = read.readFromParcel(&parcel);
        if (status == STATUS_OK) *value = std::move(read);
        return status;
    }

    void reset();
    [[nodiscard]] parcelable_stability_t getStability() const { return stability_; }

    // A failed read leaves the holder empty.
    binder_status_t readFromParcel(const AParcel* parcel);
    binder_status_t writeToParcel(AParcel* parcel) const;

    // Host only: what a torn or hostile transfer leaves in the holder. The bytes are taken as they
    // are; AParcel::bytes() gives whole ones to start from.
    void hostSetRaw(std::string_view descriptor, std::span<const uint8_t> bytes);

    bool operator==(const AParcelableHolder& rhs) const { return this == &rhs; }
    bool operator!=(const AParcelableHolder& rhs) const { return this != &rhs; }
    bool operator<(const AParcelableHolder& rhs) const { return this < &rhs; }
    bool operator<=(const AParcelableHolder& rhs) const { return this <= &rhs; }
    bool operator>(const AParcelableHolder& rhs) const { return this > &rhs; }
    bool operator>=(const AParcelableHolder& rhs) const { return this >= &rhs; }

  private:
    parcelable_stability_t stability_;
    std::string descriptor_;  // Empty: nothing is held.
    std::vector<uint8_t> bytes_;
};

}  // namespace ndk
