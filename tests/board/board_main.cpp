#include <gtest/gtest.h>

#include "host/virtual_dsp/board/enter_board.h"

// For tests that use the device nodes: runs them on the virtual board, and ends with the status
// for "skipped" where there can be none.
int main(int argc, char** argv) {
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
