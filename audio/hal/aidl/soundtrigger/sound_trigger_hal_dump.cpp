// What the audio service's dumpsys shows of the HAL and, below it, of every client.
#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

using utils::dumpsys::Dumpsys;

constexpr char kTag[] = "StHal::SoundTriggerHal";

}  // namespace

void SoundTriggerHal::Dump(const DumpsysInfo& info) {
    std::lock_guard lock(lock_);
    // Booleans are 1 and 0 here and words in the clients' lines: tools that read dumps know each by
    // its own form.
    Dumpsys(info, kTag) << "is dsp online: " << is_dsp_online_.load();
    Dumpsys(info, kTag) << "mic swap enabled: " << mic_swap_enabled_;
    Dumpsys(info, kTag) << "docked: " << docked_;
    Dumpsys(info, kTag) << "Active usage count: " << active_usage_count_;
    const DumpsysInfo client_info = utils::dumpsys::Nested(info);
    for (const auto& [handle, client] : clients_) client->Dump(client_info);
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
