#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "audio/hal/aidl/soundtrigger/sound_trigger_adapter.h"
#include "audio/hal/utils/tamberlo/tamberlo_config_parser.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl {

/**
 * The DSP's gains and timings, from the tuning file, which the constructor reads once. Of a file
 * that is missing or malformed there is nothing, or less, to send. Immutable, so safe from any
 * thread.
 */
class ZylSoundTriggerTuningManager {
  public:
    using TuningBlock = utils::tamberlo::TuningBlock;

    explicit ZylSoundTriggerTuningManager(std::string_view file_path);
    virtual ~ZylSoundTriggerTuningManager();
    ZylSoundTriggerTuningManager(const ZylSoundTriggerTuningManager&) = delete;
    ZylSoundTriggerTuningManager& operator=(const ZylSoundTriggerTuningManager&) = delete;

    /**
     * The parameter blocks of a TuningType in the order to send them; none for a type that the file
     * does not have. Their bytes stay this object's.
     */
    std::vector<TuningBlock> GetTuningData(int tuning_type) const;

  private:
    bool is_loaded_ = false;
    std::string file_path_;
    std::unique_ptr<utils::tamberlo::TamberloConfigParser> parser_;
};

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger::zyl
