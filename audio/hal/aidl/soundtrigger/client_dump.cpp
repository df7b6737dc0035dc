// What a dump shows of one client.
#include <string_view>

#include "audio/hal/aidl/soundtrigger/client.h"
#include "audio/hal/utils/dumpsys/dumpsys.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using utils::dumpsys::Dumpsys;
using utils::dumpsys::DumpsysInfo;
using utils::dumpsys::Nested;

constexpr char kTag[] = "StHal::Client";

}  // namespace

void SoundTriggerHalClient::Dump(const DumpsysInfo& info) {
    Dumpsys(info, kTag) << "Client: " << handle_;
    const DumpsysInfo sub_info = Nested(info);
    Dumpsys(sub_info, kTag) << "Io handle: " << io_handle_;
    Dumpsys(sub_info, kTag) << "Engine type: " << toString(engine_type_);
    // Words, not the 1 and 0 of the HAL's own lines.
    Dumpsys(sub_info, kTag) << "Client loaded: " << std::boolalpha << is_loaded_;
    Dumpsys(sub_info, kTag) << "Client started: " << std::boolalpha << is_started_;
    Dumpsys(sub_info, kTag) << "Aec enabled: " << std::boolalpha << is_aec_enabled_;
    Dumpsys(sub_info, kTag) << "Model info: ";
    const DumpsysInfo model_info = Nested(sub_info);
    Dumpsys(model_info, kTag) << "SoundModel type: " << toString(model_type_);
    Dumpsys(model_info, kTag) << "SoundModel size: " << model_size_;
    Dumpsys(model_info, kTag) << "SoundModel uuid: " << uuid_;
    Dumpsys(model_info, kTag) << "SoundModel vendor uuid: " << vendor_uuid_;
    Dumpsys(sub_info, kTag) << "Runtime state: " << toString(state());
    Dumpsys(sub_info, kTag) << "Recognition config: " << recognition_config_.toString();
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
