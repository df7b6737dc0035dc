#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/common/result.h"
#include "tools/sthal/facts/run_record.h"
#include "tools/sthal/phone/phone.h"

namespace sthal {

struct VirtualPhoneOptions {
    double speed = 1.0;                               // Of the microphones; 1 is real time.
    uint32_t noise_seed = 1;                          // Of what is heard while nothing is played.
    std::optional<std::vector<uint8_t>> tuning_file;  // None: the vendor partition has none.
};

/**
 * A phone on the virtual board, powered up: the HAL is built and not initialised yet. Must run on
 * the board (virtual_dsp::EnterBoard). The HAL's log goes to the record for as long as it lives.
 */
host::Result<std::unique_ptr<Phone>> BootVirtualPhone(const VirtualPhoneOptions& options,
                                                      RunRecord& record);

/**
 * The virtual board alone, without a HAL: a DSP for another process.
 *
 * @param directory where the nodes are mounted.
 * @param speed     of the microphones; 0: as fast as possible.
 */
host::Result<std::unique_ptr<Phone>> BootVirtualDsp(const std::string& directory, double speed,
                                                    RunRecord& record);

}  // namespace sthal
