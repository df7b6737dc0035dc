#pragma once

#include <string>
#include <vector>

#include "host/common/result.h"

namespace virtual_dsp {

// Whether this process sees the board's root.
bool IsOnBoard();

// The command that makes the board's root. A program that is appended to the command runs there.
std::vector<std::string> BoardRootCommand();

// Whether this machine has all that the board needs, as far as can be told without making a board.
// The error says what is missing and how to get it.
[[nodiscard]] host::Result<void> CheckBoardNeeds();

// The likely cause when the root could not be made although nothing seemed to be missing.
std::string RootFailureAdvice();

}  // namespace virtual_dsp
