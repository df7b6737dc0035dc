#pragma once

#include <cerrno>
#include <cstdint>

#include "host/virtual_dsp/dsp/journal_entry.h"

namespace virtual_dsp {

// How a command ended. The fields are those of CommandAnswered.
struct [[nodiscard]] Outcome {
    int status = 0;
    AnswerCause cause = AnswerCause::kNone;
    int64_t value = 0;
    int64_t other = 0;
    ModelFault model_fault = ModelFault::kNone;
};

inline Outcome Done(AnswerCause remark = AnswerCause::kNone, int64_t value = 0, int64_t other = 0) {
    return {0, remark, value, other};
}

inline Outcome Refused(AnswerCause cause, int64_t value = 0, int64_t other = 0) {
    return {-EINVAL, cause, value, other};
}

inline Outcome Refused(const ModelError& error) {
    return {-EINVAL, AnswerCause::kBadModel, error.value, error.other, error.fault};
}

}  // namespace virtual_dsp
