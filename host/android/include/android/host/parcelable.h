// What the AIDL compiler generates for a phone, made here from one list per type: comparison and
// text of a parcelable, and the names of an enum's values.
#pragma once

#include <android/binder_parcel.h>
#include <android/binder_parcelable_utils.h>
#include <android/binder_status.h>

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
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
    auto _aidl_fields() const {                                                              \
        return std::tie(__VA_ARGS__);                                                        \
    }                                                                                        \
    /* Nothing leaves the process here: there is no layout to read or write. */              \
    binder_status_t readFromParcel(const AParcel*) {                                         \
        return STATUS_INVALID_OPERATION;                                                     \
    }                                                                                        \
    binder_status_t writeToParcel(AParcel*) const {                                          \
        return STATUS_INVALID_OPERATION;                                                     \
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
