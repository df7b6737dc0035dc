// Host stand-in: the container that parcelables are written to and read from.
#pragma once

#include <android/binder_status.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <type_traits>
#include <vector>

/**
 * A byte buffer with a read position. On a phone this type is opaque and its bytes cross processes;
 * here they stay in this one, so the layout is free: scalars in the host's own form without
 * padding, and blocks with a 32-bit length in front.
 *
 * Reading trusts nothing. What is not there in full gives STATUS_NOT_ENOUGH_DATA and leaves both
 * the position and the result alone. Like the platform's, an AParcel is for one thread at a time,
 * and reading from a const one moves its position.
 */
struct AParcel {
  public:
    AParcel() = default;
    explicit AParcel(std::span<const uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()) {}

    [[nodiscard]] const std::vector<uint8_t>& bytes() const { return bytes_; }
    // Bytes between the read position and the end.
    [[nodiscard]] size_t remaining() const { return bytes_.size() - position_; }

    template <typename T>
    requires std::is_arithmetic_v<T>
    void writeScalar(T value) {
        const size_t end = bytes_.size();
        bytes_.resize(end + sizeof(T));
        std::memcpy(bytes_.data() + end, &value, sizeof(T));
    }

    template <typename T>
    requires(std::is_arithmetic_v<T> && !std::same_as<T, bool>) [[nodiscard]] binder_status_t
            readScalar(T* value) const {
        if (remaining() < sizeof(T)) return STATUS_NOT_ENOUGH_DATA;
        std::memcpy(value, bytes_.data() + position_, sizeof(T));
        position_ += sizeof(T);
        return STATUS_OK;
    }

    // Any byte may stand where a bool is expected, but only 0 and 1 may be copied into one.
    [[nodiscard]] binder_status_t readScalar(bool* value) const;

    // STATUS_BAD_VALUE if there are too many bytes for the length field.
    [[nodiscard]] binder_status_t writeBlock(std::span<const uint8_t> block);
    // The block is a view of this parcel's bytes, good until the next write.
    [[nodiscard]] binder_status_t readBlock(std::span<const uint8_t>* block) const;

  private:
    std::vector<uint8_t> bytes_;
    mutable size_t position_ = 0;  // Never above bytes_.size().
};
