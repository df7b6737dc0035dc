#pragma once

#include <cstdint>
#include <vector>

namespace virtual_dsp {

// The tuning file that the board ships, for Board::SetTuningFile: values for both modes, made of
// example_tuning.txt.
std::vector<uint8_t> ExampleTuningFile();

}  // namespace virtual_dsp
