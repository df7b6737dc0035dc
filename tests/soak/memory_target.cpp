#include "tests/soak/soak_target.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

namespace {

class MemoryTarget final : public SoakTarget {
  public:
    std::unique_ptr<SoundTriggerHal> BuildHal() override {
        return SoundTriggerHalBuilder::BuildSoundTriggerHal(dsp_.MakeAdapter());
    }
    std::vector<uint8_t> Model(int engine, int number) const override {
        return {static_cast<uint8_t>(engine), static_cast<uint8_t>(number), 7};
    }

    DspView View() override {
        return dsp_.With([](SoakDsp& dsp) { return dsp.view(); });
    }
    bool HasRecord() override {
        return dsp_.With([](SoakDsp& dsp) { return dsp.has_record(); });
    }
    void Detect(int engine) override {
        dsp_.With([&](SoakDsp& dsp) { dsp.Detect(engine); });
    }
    void Crash() override {
        dsp_.With([](SoakDsp& dsp) { dsp.Crash(); });
    }
    void Boot() override {
        dsp_.With([](SoakDsp& dsp) { dsp.Boot(); });
    }
    void Fail(DspCall call, int times) override {
        dsp_.With([&](SoakDsp& dsp) { dsp.Fail(call, times); });
    }
    void FailNextRead(int status) override { dsp_.FailNextRead(status); }
    void SetAudioFault(bool is_silent) override { dsp_.SetAudioFault(is_silent); }
    bool has_plain_payloads() const override { return true; }
    std::string Complaint() override {
        return dsp_.overlaps() == 0 ? "" : "two calls to the DSP overlap";
    }

  private:
    SharedSoakDsp dsp_;
};

}  // namespace

std::unique_ptr<SoakTarget> MakeMemoryTarget() {
    return std::make_unique<MemoryTarget>();
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
