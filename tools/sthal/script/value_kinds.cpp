// The kinds of values that stand in verbs' forms.
#include "tools/sthal/script/value_kinds.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "audio/hal/utils/constants/devices.h"
#include "audio/hal/utils/constants/usecases.h"
#include "host/virtual_dsp/nodes/fault_text.h"

namespace sthal {

namespace {

using ::aidl::android::media::audio::common::AudioUsage;
namespace hal_utils = ::vendor::quarno::brindlecove::audio::hal::utils;

constexpr size_t kMaxModelBytes = size_t{64} << 20;
constexpr double kMaxSeconds = 3600;

template <typename Number>
std::optional<Number> ToNumber(std::string_view text) {
    Number number{};
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (problem != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

bool IsIn(std::optional<double> number, double least, double most) {
    return number && *number >= least && *number <= most;
}

// The rule without "on", as a fault script has it.
std::string FaultProblem(std::string_view text) {
    std::string error;
    if (virtual_dsp::ParseFaults("on " + std::string(text), &error)) return {};
    return error.substr(error.find(": ") + 2);
}

std::vector<std::string> UsageNames() {
    std::vector<std::string> names;
    for (const AudioUsage usage : Usages()) names.push_back(toString(usage));
    names.emplace_back("none");
    return names;
}

std::vector<std::string> Names(std::initializer_list<std::string_view> names) {
    return {names.begin(), names.end()};
}

const std::vector<ValueKind>& Kinds() {
    // clang-format off
    static const std::vector<ValueKind> kinds = {
        {"BYTES", "a size up to 64M, such as 200K", {}, [](auto text) {
            const auto bytes = ParseBytes(text);
            return bytes && *bytes <= kMaxModelBytes; }},
        {"CHANNELS", "a number of channels", {"1", "2"}, {}},
        {"COUNT", "a whole number from 0 to 4294967295", {}, [](auto text) {
            return ToNumber<uint32_t>(text).has_value(); }},
        {"DATA", "a text", {}, [](auto) { return true; }},
        {"DECIBELS", "decibels from -100 to 40", {}, [](auto text) {
            return IsIn(ToNumber<double>(text), -100, 40); }},
        {"DEVICE", "a device", Names({hal_utils::kSpeaker, hal_utils::kUsbDock,
            hal_utils::kSpeakerSafe, hal_utils::kSpeakerEarpiece, "headset", "none"}), {}},
        {"FAULT", "a fault such as: command reply id=227 times=1 errno=EIO", {}, [](auto text) {
            return FaultProblem(text).empty(); }, FaultProblem},
        {"FILE", "a file", {}, {}},
        {"KIND", "a kind of event", {"phrase", "generic"}, {}},
        {"LEVEL", "a log level", {"verbose", "debug", "info", "warning", "error"}, {}},
        {"MODEL", "the name of a model", {}, {}},
        {"NAME", "a name", {}, {}},
        {"NUMBER", "a whole number", {}, [](auto text) {
            return ToNumber<int32_t>(text).has_value(); }},
        {"PERCENT", "0 to 100", {}, [](auto text) {
            return IsIn(ToNumber<int>(text), 0, 100); }},
        {"RATIO", "a number from 0 to 1", {}, [](auto text) {
            return IsIn(ToNumber<double>(text), 0, 1); }},
        {"RESULT", "a result such as 0, -22 or -EINVAL", {}, [](auto text) {
            return ParseStatus(text).has_value(); }},
        {"SEED", "a seed: a whole number from 0 to 4294967295", {}, [](auto text) {
            return ToNumber<uint32_t>(text).has_value(); }},
        {"SPEED", "a speed from 0.1 to 16", {}, [](auto text) {
            return IsIn(ToNumber<double>(text), 0.1, 16); }},
        {"STATE", "a runtime state", {"ModelUnloaded", "ModelLoaded", "StartDetecting", "CallbackProcessing", "Buffering", "InternalForceDetected"}, {}},
        {"STATUS", "a recognition status", {"SUCCESS", "ABORTED", "FAILURE", "FORCED"}, {}},
        {"TAG", "a log tag, or how it begins", {}, {}},
        {"TEXT", "a text", {}, {}},
        {"TIME", "a time up to an hour, such as 2.5s or 300ms", {}, [](auto text) {
            return IsIn(ParseSeconds(text), 0, kMaxSeconds); }},
        {"USAGE", "a usage", UsageNames(), {}},
        {"USECASE", "a usecase", Names({hal_utils::kPrimaryPlayback, hal_utils::kDeepBufferPlayback,
            hal_utils::kCompressOffloadPlayback, hal_utils::kHapticPlayback}), {}},
        {"VERB", "a verb", {}, {}},
    };
    // clang-format on
    return kinds;
}

}  // namespace

const ValueKind* FindKind(std::string_view name) {
    for (const ValueKind& kind : Kinds()) {
        if (name == kind.name) return &kind;
    }
    return nullptr;
}

std::vector<AudioUsage> Usages() {
    std::vector<AudioUsage> usages;
    for (int32_t usage = 0; usage <= static_cast<int32_t>(AudioUsage::ANNOUNCEMENT); ++usage) {
        const auto value = static_cast<AudioUsage>(usage);
        if (toString(value) != std::to_string(usage)) usages.push_back(value);
    }
    return usages;
}

AudioUsage UsageOf(std::string_view name) {
    for (const AudioUsage usage : Usages()) {
        if (toString(usage) == name) return usage;
    }
    return AudioUsage::INVALID;
}

std::optional<double> ParseSeconds(std::string_view text) {
    double unit = 1;
    if (text.ends_with("ms")) {
        unit = 1e-3;
        text.remove_suffix(2);
    } else if (text.ends_with("s")) {
        text.remove_suffix(1);
    }
    const auto number = ToNumber<double>(text);
    if (!number) return std::nullopt;
    return *number * unit;
}

std::optional<size_t> ParseBytes(std::string_view text) {
    int shift = 0;
    if (text.ends_with("K")) shift = 10;
    if (text.ends_with("M")) shift = 20;
    if (shift != 0) text.remove_suffix(1);
    const auto number = ToNumber<uint32_t>(text);
    if (!number) return std::nullopt;
    return size_t{*number} << shift;
}

std::optional<int> ParseStatus(std::string_view text) {
    if (const auto number = ToNumber<int>(text)) return number;
    if (!text.starts_with("-E")) return std::nullopt;
    constexpr int kHighestErrno = 133;
    for (int number = 1; number <= kHighestErrno; ++number) {
        const char* const name = strerrorname_np(number);
        if (name != nullptr && text.substr(1) == name) return -number;
    }
    return std::nullopt;
}

}  // namespace sthal
