#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"

// Tuning files in a readable form, for people and for tools. docs/tuning_file.md has its rules.
namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

/** The name of a parameter, such as "hotword-eraser-pre-gain"; empty for an unknown id. */
[[nodiscard]] std::string_view TuningParameterName(uint32_t id);

/** The id of a named parameter; nothing for an unknown name. */
[[nodiscard]] std::optional<uint32_t> TuningParameterId(std::string_view name);

/**
 * Prints a file. Nothing is lost: TuningFileFromText makes the same file of it, also when blocks
 * hold anything but well-formed parameters.
 */
[[nodiscard]] std::string TuningFileToText(const TuningFile& file);

/**
 * What ends the way of the file's values into the DSP: records of sound trigger blocks that are
 * torn or have an unknown parameter. The records before it are sent, it and those after it are not.
 *
 * @return One line for each such block, with its mode, its place among the blocks, and the byte.
 */
[[nodiscard]] std::vector<std::string> SoundTriggerProblems(const TuningFile& file);

struct TuningTextResult {
    // Whole or absent.
    std::optional<TuningFile> file;
    // Valid when there is no file: the line that is wrong, counted from 1, and what is wrong with
    // it.
    int line = 0;
    std::string what;
};

/** Reads the readable form. Thread-safe, as all functions here. */
[[nodiscard]] TuningTextResult TuningFileFromText(std::string_view text);

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
