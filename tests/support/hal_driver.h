#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/framework_monitor/framework_monitor.h"
#include "tests/support/oracle.h"
#include "tests/support/recording_callback.h"
#include "tests/support/step.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/**
 * The framework and the environment of a HAL, which take steps as the oracle predicts them.
 * Thread-safe.
 */
class HalDriver {
  public:
    // The bytes of a model.
    using ModelMaker = std::function<std::vector<uint8_t>(int engine, int number)>;

    // Events go to `callback`.
    HalDriver(std::unique_ptr<SoundTriggerHal> hal, ModelMaker make_model,
              std::shared_ptr<RecordingCallback> callback);

    // Takes one of the framework's, the environment's or a capture's steps, but reads nothing. The
    // result is as the oracle's.
    std::optional<int> Apply(const Step& step);

    SoundTriggerHal& hal() { return *hal_; }
    ::framework::FrameworkMonitor& monitor() { return monitor_; }
    std::vector<ClientView> clients();
    // Runs `is_drained` beside nothing that the HAL does under its lock. Whether it returns true
    // and no event is on its way.
    bool IsIdle(const std::function<bool()>& is_drained);

  private:
    int Load(const Step& step);
    int Start(const Step& step);
    int MicSwap(bool is_on);
    void Route(int usecases);
    void Metadata(int usecase, int tracks);
    void Online(bool is_online);

    const ModelMaker make_model_;
    const std::shared_ptr<RecordingCallback> callback_;
    ::framework::FrameworkMonitor monitor_;
    const std::unique_ptr<SoundTriggerHal> hal_;  // Its models' callbacks are the monitor's.
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
