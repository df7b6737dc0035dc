// A vendor parameter: its id, and the holder with a descriptor and bytes of any kind, put together
// here or received as a whole.
#include <aidl/android/hardware/audio/core/VendorParameter.h>
#include <aidl/android/media/audio/common/Boolean.h>

#include <optional>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "fuzz/scripted_nodes.h"

namespace fuzz {

namespace {

using ::aidl::android::hardware::audio::core::VendorParameter;
using ::aidl::android::media::audio::common::Boolean;

const std::string kFanCharger = "vendor.vexor.st.wireless.charger.with.fan";

// A Boolean's parcel is a block behind its length; where the block has no byte, the value is the
// default one.
std::optional<bool> BooleanIn(const Bytes& parcel) {
    const auto length = As<int32_t>(parcel);
    if (parcel.size() < 4 || length < 0 || parcel.size() - 4 < static_cast<size_t>(length)) {
        return std::nullopt;
    }
    return length > 0 && parcel[4] != 0;
}

class Session {
  public:
    void SetOnline(bool online) {
        hal_.OnSoundCardStateChanged(online);
        is_online_ = online;
        (void)dsp_.Take();
    }

    void Set(const VendorParameter& parameter, std::optional<bool> value) {
        if (parameter.id != kFanCharger) value.reset();
        Require(hal_.SetParameter(parameter) == value.has_value(),
                "a parameter is taken if it is the known one and a Boolean");
        const bool is_changed = value.value_or(is_swapped_) != is_swapped_;
        is_swapped_ = value.value_or(is_swapped_);
        const auto sent = dsp_.Take();
        Require(sent.size() == (is_changed && is_online_ ? 1 : 0), "the DSP is told of a change");
        Require(sent.empty() || As<zyl::CommandHeader>(sent[0]).id == (is_swapped_ ? 342 : 343),
                "the microphones are swapped as the parameter says");
        Require(!hal_.GetParameter(parameter.id), "no parameter can be read back");
    }

  private:
    ScriptedNodes nodes_;
    CommandNode dsp_{&nodes_};
    soundtrigger::SoundTriggerHal hal_{MakeAdapter()};
    bool is_online_ = false;
    bool is_swapped_ = false;
};

}  // namespace

void Run(Input input) {
    Session session;
    while (!input.empty()) {
        const auto what = input.Take<uint8_t>();
        VendorParameter parameter;
        if (what % 8 == 0) {
            session.SetOnline(what < 128);
        } else if (what % 8 == 1) {
            const AParcel parcel(input.TakeBytes(input.Take<uint8_t>()));
            if (parameter.readFromParcel(&parcel) != STATUS_OK) continue;
            std::optional<Boolean> value;
            (void)parameter.ext.getParcelable(&value);
            session.Set(parameter, value ? std::optional(value->value) : std::nullopt);
        } else {
            parameter.id = what % 2 == 0 ? kFanCharger : input.TakeText();
            const std::string descriptor = what % 4 < 2 ? Boolean::descriptor : input.TakeText();
            const Bytes bytes = input.TakeBytes(input.Take<uint8_t>() % 32);
            parameter.ext.hostSetRaw(descriptor, bytes);
            const bool is_boolean = descriptor == Boolean::descriptor;
            session.Set(parameter, is_boolean ? BooleanIn(bytes) : std::nullopt);
        }
    }
}

std::map<std::string, Bytes> Seeds() {
    Bytes parcels;
    for (const bool value : {true, false}) {
        VendorParameter parameter;
        parameter.id = kFanCharger;
        (void)parameter.ext.setParcelable(Boolean{value});
        AParcel parcel;
        (void)parameter.writeToParcel(&parcel);
        parcels = Join(parcels, U8(1), U8(static_cast<int>(parcel.bytes().size())), parcel.bytes());
    }
    const Bytes on = Join(U8(5), uint32_t{1}, U8(1));
    const Bytes torn = Join(U8(4), U8(3), Bytes(3), U8(4), U8(4), uint32_t{1}, U8(4), U8(0));
    return {{"parcels", Join(U8(0), parcels, U8(128), parcels)},
            {"ids", Join(U8(0), U8(5), Text(kFanCharger), on, U8(5), Text("vendor.vexor.st."), on)},
            {"descriptors", Join(U8(2), Text(Boolean::descriptor), on, U8(2), Text(""), on)},
            {"torn", torn}};
}

}  // namespace fuzz
