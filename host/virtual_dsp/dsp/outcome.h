#pragma once

#include <cerrno>
#include <string>
#include <utility>

namespace virtual_dsp {

// How a command ended: 0 or a negative errno, and what a person reading the journal should know.
struct [[nodiscard]] Outcome {
    int result = 0;
    std::string detail;
};

inline Outcome Done(std::string detail = {}) {
    return {0, std::move(detail)};
}

inline Outcome Refused(std::string reason) {
    return {-EINVAL, std::move(reason)};
}

}  // namespace virtual_dsp
