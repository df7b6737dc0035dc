// What the AIDL compiler generates for a phone, made here from one list per type: comparison,
// parcelling and text of a parcelable, and the names of an enum's values.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_parcel.h>
#include <android/binder_parcelable_utils.h>
#include <android/binder_status.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

/**
 * The generated part of a parcelable, to stand in the class after its members:
 *
 *     class ModelParameterRange {
 *       public:
 *         int32_t minInclusive = 0;
 *         int32_t maxInclusive = 0;
 *
 *         AIDL_HOST_PARCELABLE("android.media.soundtrigger", ModelParameterRange, minInclusive,
 *                              maxInclusive);
 *     };
 *
 * A macro and not a base class, because parcelables are aggregates on a phone: their users write
 * ModelParameterRange{.maxInclusive = 7}. Members of class type stand with {}, without which GCC
 * warns of such an initialiser that leaves them out.
 */
#define AIDL_HOST_PARCELABLE(package, Type, ...)                                             \
    auto _aidl_fields() {                                                                    \
        return std::tie(__VA_ARGS__);                                                        \
    }                                                                                        \
    auto _aidl_fields() const {                                                              \
        return std::tie(__VA_ARGS__);                                                        \
    }                                                                                        \
    binder_status_t readFromParcel(const AParcel* parcel) {                                  \
        return ::ndk::host::ReadFields(parcel, _aidl_fields());                              \
    }                                                                                        \
    binder_status_t writeToParcel(AParcel* parcel) const {                                   \
        return ::ndk::host::WriteFields(parcel, _aidl_fields());                             \
    }                                                                                        \
    std::string toString() const {                                                           \
        return ::ndk::host::FieldsToString(#Type, #__VA_ARGS__, _aidl_fields());             \
    }                                                                                        \
    bool operator==(const Type& rhs) const {                                                 \
        return _aidl_fields() == rhs._aidl_fields();                                         \
    }                                                                                        \
    bool operator!=(const Type& rhs) const {                                                 \
        return !(*this == rhs);                                                              \
    }                                                                                        \
    bool operator<(const Type& rhs) const {                                                  \
        return _aidl_fields() < rhs._aidl_fields();                                          \
    }                                                                                        \
    bool operator<=(const Type& rhs) const {                                                 \
        return _aidl_fields() <= rhs._aidl_fields();                                         \
    }                                                                                        \
    bool operator>(const Type& rhs) const {                                                  \
        return rhs < *this;                                                                  \
    }                                                                                        \
    bool operator>=(const Type& rhs) const {                                                 \
        return rhs <= *this;                                                                 \
    }                                                                                        \
    static constexpr ::ndk::parcelable_stability_t _aidl_stability = ::ndk::STABILITY_VINTF; \
    inline static const char* descriptor = package "." #Type

/**
 * An enum of an AIDL package and its toString(). Every enumerator needs its "= value" in decimal:
 * the names are looked up in the list as it is written.
 */
#define AIDL_HOST_ENUM(Type, underlying, ...)                                             \
    enum class Type : underlying;                                                         \
    [[nodiscard]] static inline std::string toString(Type value) {                        \
        return ::ndk::host::EnumeratorName(#__VA_ARGS__, static_cast<underlying>(value)); \
    }                                                                                     \
    enum class Type : underlying { __VA_ARGS__ }

namespace ndk::host {

// Cuts the first entry off a list as macros spell it, "a, b, c".
std::string_view TakeEntry(std::string_view* list);

// The first name with this value in a list like "DEFAULT = 0, PCM = 1", else the value's digits.
std::string EnumeratorName(std::string_view enumerators, int64_t value);

// Ends the process with a message: the tag asked for is not the one that a union holds.
[[noreturn]] void AbortOnWrongTag();

template <typename T>
[[nodiscard]] T* RequireTag(T* value) {
    if (value == nullptr) AbortOnWrongTag();
    return value;
}

template <typename T>
concept Vector = std::same_as<T, std::vector<typename T::value_type>>;
template <typename T>
concept Optional = std::same_as<T, std::optional<typename T::value_type>>;

template <typename T>
[[nodiscard]] std::string ToString(const T& value) {
    if constexpr (std::same_as<T, bool>) {
        return value ? "true" : "false";
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else if constexpr (std::is_enum_v<T>) {
        return toString(value);
    } else if constexpr (std::same_as<T, std::string>) {
        return value;
    } else if constexpr (Vector<T>) {
        std::string text = "[";
        for (const auto& element : value) {
            if (text.size() > 1) text += ", ";
            text += ToString(element);
        }
        return text + "]";
    } else if constexpr (Optional<T>) {
        return value ? ToString(*value) : "(null)";
    } else if constexpr (requires { value.toString(); }) {
        return value.toString();
    } else {
        return "{no toString() implemented}";  // Descriptors and holders, on a phone too.
    }
}

template <typename T>
[[nodiscard]] binder_status_t WriteValue(AParcel* parcel, const T& value) {
    if constexpr (std::is_arithmetic_v<T>) {
        parcel->writeScalar(value);
        return STATUS_OK;
    } else if constexpr (std::is_enum_v<T>) {
        return WriteValue(parcel, static_cast<std::underlying_type_t<T>>(value));
    } else if constexpr (std::same_as<T, std::string>) {
        return parcel->writeBlock({reinterpret_cast<const uint8_t*>(value.data()), value.size()});
    } else if constexpr (Vector<T>) {
        if (value.size() > INT32_MAX) return STATUS_BAD_VALUE;
        parcel->writeScalar(static_cast<int32_t>(value.size()));
        for (const auto& element : value) {
            const binder_status_t status = WriteValue(parcel, element);
            if (status != STATUS_OK) return status;
        }
        return STATUS_OK;
    } else if constexpr (Optional<T>) {
        parcel->writeScalar(value.has_value());
        return value ? WriteValue(parcel, *value) : STATUS_OK;
    } else if constexpr (std::same_as<T, ScopedFileDescriptor>) {
        return STATUS_FDS_NOT_ALLOWED;  // A buffer of bytes cannot own a descriptor.
    } else {
        return value.writeToParcel(parcel);
    }
}

template <typename T>
[[nodiscard]] binder_status_t ReadValue(const AParcel* parcel, T* value);

template <typename T>
[[nodiscard]] binder_status_t ReadVector(const AParcel* parcel, std::vector<T>* value) {
    int32_t count = 0;
    if (const binder_status_t status = parcel->readScalar(&count); status != STATUS_OK) {
        return status;
    }
    if (count < 0) return STATUS_BAD_VALUE;
    // An element takes a byte at least. The vector grows with what is really there, so a false
    // count costs no memory.
    if (static_cast<size_t>(count) > parcel->remaining()) return STATUS_NOT_ENOUGH_DATA;
    value->clear();
    for (int32_t i = 0; i < count; ++i) {
        T element{};
        if (const binder_status_t status = ReadValue(parcel, &element); status != STATUS_OK) {
            return status;
        }
        value->push_back(std::move(element));
    }
    return STATUS_OK;
}

template <typename T>
[[nodiscard]] binder_status_t ReadOptional(const AParcel* parcel, std::optional<T>* value) {
    value->reset();
    bool present = false;
    binder_status_t status = parcel->readScalar(&present);
    if (status != STATUS_OK || !present) return status;
    status = ReadValue(parcel, &value->emplace());
    if (status != STATUS_OK) value->reset();
    return status;
}

template <typename T>
binder_status_t ReadValue(const AParcel* parcel, T* value) {
    if constexpr (std::is_arithmetic_v<T>) {
        return parcel->readScalar(value);
    } else if constexpr (std::is_enum_v<T>) {
        // Unknown values are kept, as those of a newer peer are.
        std::underlying_type_t<T> number{};
        const binder_status_t status = parcel->readScalar(&number);
        if (status == STATUS_OK) *value = static_cast<T>(number);
        return status;
    } else if constexpr (std::same_as<T, std::string>) {
        std::span<const uint8_t> block;
        const binder_status_t status = parcel->readBlock(&block);
        if (status == STATUS_OK) value->assign(block.begin(), block.end());
        return status;
    } else if constexpr (Vector<T>) {
        return ReadVector(parcel, value);
    } else if constexpr (Optional<T>) {
        return ReadOptional(parcel, value);
    } else if constexpr (std::same_as<T, ScopedFileDescriptor>) {
        return STATUS_FDS_NOT_ALLOWED;
    } else {
        return value->readFromParcel(parcel);
    }
}

// A parcelable is one block with its fields in it, so that a reader can skip fields that it does
// not know and a false length inside reaches no further than the block.
template <typename Fields>
[[nodiscard]] binder_status_t WriteFields(AParcel* parcel, const Fields& fields) {
    AParcel block;
    binder_status_t status = STATUS_OK;
    std::apply(
            [&](const auto&... field) {
                (void)(((status = WriteValue(&block, field)) == STATUS_OK) && ...);
            },
            fields);
    return status == STATUS_OK ? parcel->writeBlock(block.bytes()) : status;
}

template <typename Fields>
[[nodiscard]] binder_status_t ReadFields(const AParcel* parcel, const Fields& fields) {
    std::span<const uint8_t> bytes;
    binder_status_t status = parcel->readBlock(&bytes);
    if (status != STATUS_OK) return status;
    const AParcel block(bytes);
    // Fields after the block's end keep their values: an older sender does not know them.
    std::apply(
            [&](auto&... field) {
                (void)((block.remaining() > 0 &&
                        (status = ReadValue(&block, &field)) == STATUS_OK) &&
                       ...);
            },
            fields);
    return status;
}

template <typename Fields>
[[nodiscard]] std::string FieldsToString(std::string_view type, std::string_view names,
                                         const Fields& fields) {
    std::string text(type);
    std::string_view separator = "{";
    const auto append = [&](const auto& field) {
        text.append(separator).append(TakeEntry(&names)).append(": ").append(ToString(field));
        separator = ", ";
    };
    std::apply([&](const auto&... field) { (append(field), ...); }, fields);
    if constexpr (std::tuple_size_v<Fields> == 0) text += '{';
    return text + "}";
}

}  // namespace ndk::host
