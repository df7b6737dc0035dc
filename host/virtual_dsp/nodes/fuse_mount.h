#pragma once

#include <string>

namespace virtual_dsp {

// Mounts an empty FUSE connection on `directory` and returns its descriptor, which is close-on-exec
// and non-blocking; -1, with `error` set to a text that says what is missing, when that fails.
// Closing the descriptor ends the connection: every call on the file system fails from then on.
int MountFuse(const std::string& directory, std::string* error);

// Takes the file system off `directory`, in use or not. Needs nobody to serve it.
void UnmountFuse(const std::string& directory);

}  // namespace virtual_dsp
