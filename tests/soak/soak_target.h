#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_hal.h"
#include "tests/soak/soak_dsp.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** A DSP that a soak runs on. New for each run; outlives its HALs. */
class SoakTarget {
  public:
    virtual ~SoakTarget() = default;
    virtual std::unique_ptr<SoundTriggerHal> BuildHal() = 0;
    // A model that this DSP takes; each number has other bytes.
    virtual std::vector<uint8_t> Model(int engine, int number) const = 0;

    virtual DspView View() = 0;
    virtual bool HasRecord() = 0;
    virtual void Detect(int engine) = 0;
    virtual void Crash() = 0;
    virtual void Boot() = 0;
    virtual void Fail(DspCall call, int times) = 0;
    virtual void FailNextRead(int status) = 0;
    virtual void SetAudioFault(bool is_silent) = 0;
    // Whether payloads are SoakDsp's.
    virtual bool has_plain_payloads() const = 0;
    // What went wrong that no answer shows; empty when nothing did.
    virtual std::string Complaint() { return ""; }
};

/** In memory. */
std::unique_ptr<SoakTarget> MakeMemoryTarget();

/** The virtual board. Null, with `error` set, where there can be none. */
std::unique_ptr<SoakTarget> MakeBoardTarget(std::string* error);

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
