#pragma once

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

/** The audio that a PcmProcessor gets. */
struct PcmConfig {
    int channels = 0;
    int sample_rate = 0;  // Hz.
    int frames_per_period = 0;
    int bytes_per_sample = 0;
    bool is_interleaved = false;
};

/** Processes the audio of a capture stream in place, before the framework gets it. */
class PcmProcessor {
  public:
    virtual ~PcmProcessor() = default;

    /** False when it cannot work on such audio. */
    [[nodiscard]] virtual bool SetUp(const PcmConfig& config) = 0;

    /** Returns the frames left in `buffer`, at most `frames`. */
    [[nodiscard]] virtual int Process(unsigned char* buffer, int frames) = 0;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
