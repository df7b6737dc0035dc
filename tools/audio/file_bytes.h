#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "tools/audio/sound.h"

namespace sthal::audio {

/**
 * Reads a whole file; a pipe (as a shell's <(...) makes) until its end.
 *
 * @return Its bytes, or why it cannot be read. A file of more than 1 GiB is refused.
 */
Result<std::vector<uint8_t>> ReadFileBytes(const std::string& path);

/**
 * Writes a file, which appears under its name only once it is complete; on an error there is
 * neither a new file nor a change to an old one. What is no regular file (/dev/stdout, a pipe) is
 * written straight.
 *
 * @return Empty when written, else why not.
 */
[[nodiscard]] std::string WriteFileBytes(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace sthal::audio
