#include "tests/soak/step_generator.h"

#include <cerrno>

#include "tests/support/simple_dsp.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using Kind = Step::Kind;

std::vector<Step> StepGenerator::Make(size_t count) {
    std::vector<Step> steps;
    steps.reserve(count);
    if (count > 0) steps.push_back({Kind::kRecover});
    while (steps.size() < count) steps.push_back(Next());
    return steps;
}

// Mostly one that may exist; now and then the HAL's own client, or none.
int StepGenerator::RandomHandle() {
    const int drawn = Below(40);
    if (drawn == 0) return 0;
    if (drawn == 1) return 4;
    if (drawn == 2) return -1;
    return 1 + drawn % 3;
}

Step StepGenerator::Next() {
    const int drawn = Below(100);
    if (drawn < 52) return FrameworkStep();
    if (drawn < 66) return CaptureStep();
    if (drawn < 78) return EnvironmentStep();
    return DspStep();
}

Step StepGenerator::FrameworkStep() {
    const int drawn = Below(52);
    if (drawn < 12) {
        const int type = OneIn(30) ? 2 : Below(2);
        return {Kind::kLoad, type, Below(kStepModels), OneIn(25) ? 1 + Below(2) : 0};
    }
    if (drawn < 18) return {Kind::kUnload, RandomHandle()};
    if (drawn < 35) return {Kind::kStart, RandomHandle(), Below(4), Below(4)};
    if (drawn < 44) return {Kind::kStop, RandomHandle()};
    if (drawn < 51) return {Kind::kForce, RandomHandle()};
    return {Kind::kProperties};
}

Step StepGenerator::CaptureStep() {
    const int drawn = Below(14);
    if (drawn < 3) return {Kind::kInternalForce};
    if (drawn < 6) return {Kind::kStopInternalForce};
    if (drawn < 11 || for_board_) return {Kind::kStartBuffering, Below(4), OneIn(4) ? 1 : 0};
    return {Kind::kRead, 1 + Below(2), OneIn(4) ? 1 : 0};
}

Step StepGenerator::EnvironmentStep() {
    const int drawn = Below(12);
    if (drawn < 2) return {Kind::kDock, Below(2)};
    if (drawn < 4) return {Kind::kMicSwap, Below(2)};
    if (drawn < 7) return {Kind::kRoute, Below(16)};
    if (drawn < 11) return {Kind::kMetadata, Below(4), Below(3)};
    return {Kind::kOnline, Below(3) > 0 ? 1 : 0};
}

Step StepGenerator::DspStep() {
    const int drawn = Below(44);
    if (drawn < 28) return {Kind::kDetect, 1 + Below(2)};
    if (drawn < 30) return {Kind::kCrash, OneIn(4) ? 0 : 1};
    if (drawn < 36) return {Kind::kRecover};
    if (drawn == 43) {
        if (OneIn(20)) return {Kind::kRestartHal};
        // -ENODEV makes the HAL pause, so it is rare.
        if (!for_board_) return {Kind::kReadFault, OneIn(400) ? -ENODEV : -EIO};
    }
    const auto operation = static_cast<DspOp>(Below(static_cast<int>(DspOp::kQuery) + 1));
    switch (operation) {
        case DspOp::kLoad:
        case DspOp::kUnload:
        case DspOp::kStart:
        case DspOp::kStop:
        case DspOp::kForce:
            return {Kind::kFault, static_cast<int>(operation), 1 + Below(2), 1 + Below(2)};
        case DspOp::kInternal:
        case DspOp::kQuery:
            return {Kind::kFault, static_cast<int>(operation), 0, 1};
        case DspOp::kEraser:
        case DspOp::kNeuralAec:
        case DspOp::kMicSwap:
        case DspOp::kReference:
        case DspOp::kApProcess:
            return {Kind::kFault, static_cast<int>(operation), Below(2), 1};
        case DspOp::kTuning:
        case DspOp::kRead:
            break;
    }
    return {Kind::kDetect, 1 + Below(2)};
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
