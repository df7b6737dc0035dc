#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "host/common/result.h"

// Tuning files in a readable form, for people and for tools. docs/tuning_file.md has its rules.
namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

/** The name of a parameter, such as "hotword-eraser-pre-gain"; empty for an unknown id. */
[[nodiscard]] std::string_view TuningParameterName(uint32_t id);

/** The id of a named parameter; nothing for an unknown name. */
[[nodiscard]] std::optional<uint32_t> TuningParameterId(std::string_view name);

/**
 * Prints a file. Nothing is lost: TuningFileFromText makes the same file from the text, even if
 * blocks hold something other than well-formed parameters.
 */
[[nodiscard]] std::string TuningFileToText(const TuningFile& file);

/**
 * Finds the records at which the HAL stops sending the file to the DSP: records of sound trigger
 * blocks that are torn or have an unknown parameter. The HAL sends the records before such a
 * record, but neither that record nor those after it.
 *
 * @return One line for each block with such a record: its mode, its place among the blocks, and the
 *         byte at which the record begins.
 */
[[nodiscard]] std::vector<std::string> SoundTriggerProblems(const TuningFile& file);

struct TuningTextError {
    int line = 0;      // Counted from 1.
    std::string what;  // Is wrong with it.
};

/** Reads the readable form. Thread-safe, as all functions here. */
[[nodiscard]] host::Result<TuningFile, TuningTextError> TuningFileFromText(std::string_view text);

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
