#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/common/result.h"

// The tuning file, decoded and encoded. docs/tuning_file.md has the layout.
namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

/** The only version that these functions read and write. */
inline constexpr uint32_t kTuningFileVersion = 1;

/** A larger file is refused; real ones have a few kilobytes. */
inline constexpr size_t kMaxTuningFileBytes = 1 << 20;

struct TuningFileBlock {
    uint32_t id = 0;
    std::vector<uint8_t> data;

    bool operator==(const TuningFileBlock&) const = default;
};

/** The blocks of one mode by type (TamberloConfigParser::Type), each list in the order of the file.
 */
using TuningFileMode = std::map<uint32_t, std::vector<TuningFileBlock>>;

/** All that a tuning file says, by mode. */
struct TuningFile {
    std::map<uint32_t, TuningFileMode> modes;

    bool operator==(const TuningFile&) const = default;
};

struct TuningFileError {
    // As the file states it; empty when the image does not begin like a tuning file.
    std::optional<uint32_t> version;
    size_t offset = 0;  // Bytes from the start of the image to the field that is wrong.
    std::string what;   // One line, without a newline.
};

/**
 * Decodes a file image. The image may hold anything: no byte beyond it is read, and time and memory
 * are proportional to its length. The result is a whole file of version kTuningFileVersion, or an
 * error. Thread-safe.
 */
[[nodiscard]] host::Result<TuningFile, TuningFileError> ReadTuningFile(
        std::span<const uint8_t> image);

/**
 * Encodes a file. If ReadTuningFile decoded the file from an image, the result is that image again.
 * Thread-safe.
 * Fails when the image would exceed kMaxTuningFileBytes.
 */
[[nodiscard]] host::Result<std::vector<uint8_t>> WriteTuningFile(const TuningFile& file);

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
