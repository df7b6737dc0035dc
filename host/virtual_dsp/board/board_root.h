#pragma once

#include <optional>
#include <string>
#include <vector>

namespace virtual_dsp {

// Whether this process sees the board's root.
bool IsOnBoard();

// The command that makes the board's root and runs what is appended to it there.
std::vector<std::string> BoardRootCommand();

// What of the board's needs is missing, with advice; empty when nothing is that can be told without
// trying.
std::optional<std::string> MissingForBoard();

// What may be the matter when the root could not be made although nothing seemed to be missing.
std::string RootFailureAdvice();

}  // namespace virtual_dsp
