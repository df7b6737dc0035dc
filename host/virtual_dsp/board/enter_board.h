#pragma once

#include <optional>
#include <string>

namespace virtual_dsp {

// The exit status of a program that needs the virtual board where none can be had. Test runners
// take it for "skipped".
inline constexpr int kBoardUnavailable = 77;

// Puts the running program on the virtual board: a view of the file system, private to it and its
// children, in which the device paths lead into kBoardDirectory. A Board is made there afterwards;
// until then, and without one, the devices are missing. Everything else is where it was.
//
// To be called first in main(), before any thread is started and any file is opened:
//
//     int main(int argc, char** argv) {
//         if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
//         ...  // On the board.
//     }
//
// Off the board it runs the program anew, with the same arguments, on one, passes on to it what
// signals it gets, and returns the exit status that main() is to end with; where the program on the
// board was ended by a signal, this one ends by the same. On the board it returns nothing.
//
// Returns kBoardUnavailable, after it has said on standard error what is missing and how to get
// it, where there can be no board.
[[nodiscard]] std::optional<int> EnterBoard(int argc, char** argv);

// Why EnterBoard() could not, in one or more lines for a person; empty when it could. Tries it out,
// which takes some 10 ms.
[[nodiscard]] std::optional<std::string> BoardUnavailableReason();

}  // namespace virtual_dsp
