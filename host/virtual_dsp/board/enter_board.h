#pragma once

#include <optional>

#include "host/common/result.h"

namespace virtual_dsp {

// The exit status of a program that needs the virtual board on a machine where no board is
// possible. Test runners treat it as "skipped".
inline constexpr int kBoardUnavailable = 77;

// Puts the running program on the virtual board: a view of the file system, private to it and its
// children, in which the device paths lead into kBoardDirectory. The devices are missing until the
// program makes a Board there. Everything else is the same as outside.
//
// Call it first in main(), before any thread is started and any file is opened:
//
//     int main(int argc, char** argv) {
//         if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
//         ...  // On the board.
//     }
//
// Outside a board it runs the program again on a board, with the same arguments, and passes on the
// signals that it gets. It returns the exit status with which main() has to end. If a signal ended
// the program on the board, the same signal ends this one. On the board it returns nothing.
//
// Where no board is possible, it says on standard error what is missing and how to get it, and
// returns kBoardUnavailable.
[[nodiscard]] std::optional<int> EnterBoard(int argc, char** argv);

// Whether EnterBoard() would succeed; the error is one or more lines for a person. Makes the
// board's root to find out, which takes some 10 ms.
[[nodiscard]] host::Result<void> CheckBoardAvailable();

}  // namespace virtual_dsp
