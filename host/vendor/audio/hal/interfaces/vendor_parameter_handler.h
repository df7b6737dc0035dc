#pragma once

#include <optional>
#include <string>

#include <aidl/android/hardware/audio/core/VendorParameter.h>

namespace vendor::quarno::brindlecove::audio::hal {

/** Owns the vendor parameters whose names begin with its prefix. */
class VendorParameterHandler {
  public:
    virtual ~VendorParameterHandler() = default;

    /** The prefix: the same object in every call, which lives as long as the handler. */
    virtual const std::string& GetPrefix() const = 0;

    /** The parameter's value; none when it is unknown or cannot be read. */
    virtual std::optional<::aidl::android::hardware::audio::core::VendorParameter> GetParameter(
            const std::string& key) = 0;

    /** Returns whether the handler accepted the parameter; true also if that changed nothing. */
    virtual bool SetParameter(
            const ::aidl::android::hardware::audio::core::VendorParameter& parameter) = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal
