#pragma once

#include <aidl/android/media/audio/common/AudioUsage.h>
#include <aidl/android/media/soundtrigger/Properties.h>
#include <aidl/android/media/soundtrigger/RecognitionConfig.h>
#include <aidl/android/media/soundtrigger/SoundModelType.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "audio/hal/utils/soundcardstate/sound_card_state.h"
#include "host/framework_monitor/framework_monitor.h"
#include "tools/sthal/facts/run_record.h"
#include "tools/sthal/phone/framework_callback.h"

namespace sthal {

namespace soundtrigger = ::vendor::quarno::brindlecove::audio::hal::soundtrigger;

// What the service is told by the phone around it. Called on any thread.
struct ServiceSurroundings {
    // When the DSP raised its latest detection record; 0 before the first, or where nobody knows.
    std::function<int64_t()> latest_record_ns;
    // The wake locks that are held; empty where they cannot be asked for.
    std::function<std::vector<std::string>()> wake_locks;
};

/**
 * The audio service around the HAL: the HAL itself, the sound card monitor, the framework with the
 * monitor of its rules, and the parts that report dock, playback and chargers. Notes every call in
 * the run's record, when it is made and when it has returned, and every event.
 *
 * Used by one thread; events come on the HAL's control thread.
 */
class Service {
  public:
    Service(RunRecord& record, ServiceSurroundings surroundings);
    ~Service();
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    soundtrigger::SoundTriggerHal& hal() { return *hal_; }
    FrameworkCallback& framework() { return *framework_; }

    // --- the audio service ---
    // Whether the sound card is online.
    bool Initialize();
    // The service dies and is started again: a new HAL, which has none of the models, reads the
    // tuning file and is initialised. No capture may be open.
    void Restart();
    // What the sound card monitor reports.
    void ReportDsp(bool online);
    void Dock(bool connected);
    // Everything that is routed.
    void SetRoutes(std::vector<Route> routes);
    // The usages of a usecase's tracks.
    void PlayTracks(std::string_view usecase,
                    std::vector<::aidl::android::media::audio::common::AudioUsage> usages);
    void FanCharger(bool present);
    std::string ReadDump(std::span<const std::string_view> arguments = {});

    // --- the framework: what the HAL returned ---
    int GetProperties(::aidl::android::media::soundtrigger::Properties* properties);
    // `handle` is the new model's, or 0. The vendor uuid is made of `name`.
    int Load(::aidl::android::media::soundtrigger::SoundModelType type,
             std::span<const uint8_t> model, const std::string& name, int* handle);
    int Start(int handle, int io_handle,
              const ::aidl::android::media::soundtrigger::RecognitionConfig& config);
    int Stop(int handle);
    int Unload(int handle);
    int ForceRecognition(int handle);

    // The first rule that the HAL broke for which the framework would restart it.
    std::optional<BrokenRule> broken_rule() const;

  private:
    void BuildHal();
    int CallModel(Operation operation, int handle,
                  int (framework::FrameworkMonitor::*call)(int handle));

    RunRecord& record_;
    const ServiceSurroundings surroundings_;
    ::vendor::quarno::brindlecove::audio::hal::utils::soundcardstate::SoundCardState sound_card_;
    std::shared_ptr<FrameworkCallback> framework_;
    std::unique_ptr<framework::FrameworkMonitor> monitor_;
    // After the monitor: the HAL ends first, and an event may be in the monitor until then.
    std::unique_ptr<soundtrigger::SoundTriggerHal> hal_;
    std::optional<BrokenRule> broken_earlier_;  // Before the service's restart.
};

}  // namespace sthal
