#pragma once

#include <cstdint>
#include <vector>

namespace virtual_dsp {

// The tuning file that comes with the board, for Board::SetTuningFile: values for both modes, made
// from example_tuning.txt.
std::vector<uint8_t> ExampleTuningFile();

}  // namespace virtual_dsp
