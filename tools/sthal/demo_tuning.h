#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace sthal {

// The tuning file that the virtual board ships, made of example_tuning.txt.
std::vector<uint8_t> DemoTuningFile();

}  // namespace sthal
