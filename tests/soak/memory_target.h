#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/soak/soak_target.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** A target in memory. */
class MemoryTarget : public SoakTarget {
  public:
    std::unique_ptr<SoundTriggerHal> BuildHal() override {
        return SoundTriggerHalBuilder::BuildSoundTriggerHal(dsp_.MakeAdapter());
    }
    std::vector<uint8_t> Model(int engine, int number) const override {
        return {static_cast<uint8_t>(engine), static_cast<uint8_t>(number), 7};
    }

    DspView View() override {
        return dsp_.With([](SimpleDsp& dsp) { return dsp.view(); });
    }
    bool HasRecord() override {
        return dsp_.With([](SimpleDsp& dsp) { return dsp.has_record(); });
    }
    void Detect(int engine) override {
        dsp_.With([&](SimpleDsp& dsp) { dsp.Detect(engine); });
    }
    void Crash() override {
        dsp_.With([](SimpleDsp& dsp) { dsp.Crash(); });
    }
    void Boot() override {
        dsp_.With([](SimpleDsp& dsp) { dsp.Boot(); });
    }
    void Fail(DspCall call, int times) override {
        dsp_.With([&](SimpleDsp& dsp) { dsp.Fail(call, times); });
    }
    void FailNextRead(int status) override { dsp_.FailNextRead(status); }
    void SetAudioFault(bool is_silent) override { dsp_.SetAudioFault(is_silent); }
    bool has_plain_payloads() const override { return true; }
    std::string Complaint() override {
        return dsp_.overlaps() == 0 ? "" : "two calls to the DSP overlap";
    }

  private:
    SharedSimpleDsp dsp_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
