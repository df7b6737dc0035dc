#pragma once

#include <cstdint>
#include <numbers>

namespace sthal::audio {

// Gives the same numbers for the same seed with every compiler. The standard library's
// distributions do not, nor do the logarithms that better ones need.
class Random {
  public:
    explicit Random(uint64_t seed) : state_(seed) {}

    uint64_t Next() {
        uint64_t x = state_ += 0x9E3779B97F4A7C15;
        x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9;
        x = (x ^ (x >> 27)) * 0x94D049BB133111EB;
        return x ^ (x >> 31);
    }
    // [0, 1).
    double Uniform() { return static_cast<double>(Next() >> 11) * 0x1p-53; }
    // Close to normally distributed: mean 0, deviation 1, never beyond 3.5.
    double Noise() {
        return (Uniform() + Uniform() + Uniform() + Uniform() - 2) * std::numbers::sqrt3;
    }

  private:
    uint64_t state_;
};

}  // namespace sthal::audio
