#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

// The tuning file, decoded and encoded. docs/tuning_file.md has the layout.
namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo {

/** The version that is read and written here. */
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
    size_t offset = 0;  // Bytes from the start of the image to the field that is wrong.
    std::string what;   // One line without an end.
};

/** What ReadTuningFile found out about an image. */
struct TuningFileResult {
    // Stated by the file, also when the rest of it is malformed or of another version; empty when
    // the image does not begin like a tuning file.
    std::optional<uint32_t> version;
    // Whole or absent: never a part of a malformed file.
    std::optional<TuningFile> file;
    // Valid when there is no file.
    TuningFileError error;
};

/**
 * Decodes a file image, which may hold anything: reads no byte beyond it, takes time and memory in
 * proportion to its length. Thread-safe.
 */
[[nodiscard]] TuningFileResult ReadTuningFile(std::span<const uint8_t> image);

/**
 * Encodes a file. What ReadTuningFile made of an image becomes that image again. Thread-safe.
 *
 * @return Nothing when the image would exceed kMaxTuningFileBytes.
 */
[[nodiscard]] std::optional<std::vector<uint8_t>> WriteTuningFile(const TuningFile& file);

}  // namespace vendor::quarno::brindlecove::audio::hal::utils::tamberlo
