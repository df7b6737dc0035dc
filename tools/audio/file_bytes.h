#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/common/result.h"

namespace sthal::audio {

/**
 * Opens a file to be read from any place in it. Of what is no regular file, such as a pipe (as a
 * shell's <(...) makes), it is a copy in memory, read to the end.
 *
 * @return The file, which stands at its start, or why it cannot be read. More than 1 GiB is
 * refused.
 */
host::Result<android::base::unique_fd> OpenSeekable(const std::string& path);

// All bytes of what OpenSeekable() opens.
host::Result<std::vector<uint8_t>> ReadFileBytes(const std::string& path);

/**
 * Writes a file, which appears under its name only once it is complete; on an error there is
 * neither a new file nor a change to an old one. What is no regular file (/dev/stdout, a pipe) is
 * written straight.
 *
 * @return Why not, if it could not be written.
 */
host::Result<void> WriteFileBytes(const std::string& path, std::span<const uint8_t> bytes);

}  // namespace sthal::audio
