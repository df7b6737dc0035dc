#pragma once

#include <string>

#include <android-base/unique_fd.h>

#include "host/common/result.h"

namespace virtual_dsp {

// Mounts an empty FUSE connection on `directory` and returns its descriptor, which is close-on-exec
// and non-blocking. Closing the descriptor ends the connection: every call on the file system fails
// from then on.
[[nodiscard]] host::Result<android::base::unique_fd> MountFuse(const std::string& directory);

// Unmounts the file system from `directory`, even if it is in use or has no server.
void UnmountFuse(const std::string& directory);

}  // namespace virtual_dsp
