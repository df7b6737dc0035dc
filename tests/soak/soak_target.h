#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "host/common/result.h"
#include "tests/support/simple_dsp.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** A DSP that a soak runs on. New for each run; outlives its HALs. */
class SoakTarget {
  public:
    virtual ~SoakTarget() = default;
    virtual std::unique_ptr<SoundTriggerHal> BuildHal() = 0;
    // A model that this DSP accepts; each number gives other bytes.
    virtual std::vector<uint8_t> Model(int engine, int number) const = 0;

    virtual DspView View() = 0;
    virtual bool HasRecord() = 0;
    virtual void Detect(int engine) = 0;
    virtual void Crash() = 0;
    virtual void Boot() = 0;
    virtual void Fail(DspCall call, int times) = 0;
    virtual void FailNextRead(int status) = 0;
    virtual void SetAudioFault(bool is_silent) = 0;
    // Whether the payloads are those of SimpleDsp.
    virtual bool has_plain_payloads() const = 0;
    // A fault that no result shows; empty when there is none.
    virtual std::string Complaint() { return ""; }
};

/** A target on the virtual board. */
[[nodiscard]] host::Result<std::unique_ptr<SoakTarget>> MakeBoardTarget();

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
