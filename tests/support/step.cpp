#include "tests/support/step.h"

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using Kind = Step::Kind;

std::string ToText(const Step& step) {
    const auto call = [&](const char* name, int arguments) {
        std::string text = std::string(name) + "(";
        if (arguments > 0) text += std::to_string(step.a);
        if (arguments > 1) text += ", " + std::to_string(step.b);
        if (arguments > 2) text += ", " + std::to_string(step.c);
        return text + ")";
    };
    switch (step.kind) {
        case Kind::kLoad: {
            constexpr const char* kTypes[] = {"keyphrase", "generic", "invalid type"};
            constexpr const char* kDefects[] = {"", ", no data", ", bad descriptor"};
            return std::string("load(") + kTypes[step.a] + ", model " + std::to_string(step.b) +
                   kDefects[step.c] + ")";
        }
        case Kind::kUnload:
            return call("unload", 1);
        case Kind::kStart:
            return "start(" + std::to_string(step.a) + ", io " + std::to_string(step.b) +
                   ", configuration " + std::to_string(step.c) + ")";
        case Kind::kStop:
            return call("stop", 1);
        case Kind::kForce:
            return call("force", 1);
        case Kind::kProperties:
            return call("properties", 0);
        case Kind::kInternalForce:
            return call("internal force", 0);
        case Kind::kStopInternalForce:
            return call("stop internal force", 0);
        case Kind::kStartBuffering:
            return call(step.b != 0 ? "buffer forced" : "buffer", 1);
        case Kind::kRead:
            return call(step.b != 0 ? "read without audio" : "read", 1);
        case Kind::kDock:
            return call("dock", 1);
        case Kind::kMicSwap:
            return call("mic swap", 1);
        case Kind::kRoute:
            return call("route", 1);
        case Kind::kMetadata:
            return call("tracks", 2);
        case Kind::kOnline:
            return call("report online", 1);
        case Kind::kDetect:
            return call("detect", 1);
        case Kind::kCrash:
            return step.a != 0 ? "crash, reported" : "crash, not reported";
        case Kind::kRecover:
            return call("recover", 0);
        case Kind::kFault:
            return "fail(operation " + std::to_string(step.a) + "(" + std::to_string(step.b) +
                   "), " + std::to_string(step.c) + " times)";
        case Kind::kReadFault:
            return call("fail read of record", 1);
        case Kind::kRestartHal:
            return call("restart of the service", 0);
    }
    return "?";
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
