// The kinds of values that stand in verbs' forms.
#include "tools/sthal/script/value_kinds.h"

#include <array>
#include <charconv>

#include "audio/hal/utils/constants/devices.h"
#include "audio/hal/utils/constants/usecases.h"
#include "host/virtual_dsp/nodes/fault_text.h"
#include "tools/sthal/facts/hal_log.h"
#include "tools/sthal/script/verbs.h"

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

// What fits a number, within limits.
template <typename Number>
auto Any() {
    return [](std::string_view text) { return ToNumber<Number>(text).has_value(); };
}

template <typename Number>
auto Between(Number least, Number most) {
    return [=](std::string_view text) {
        const auto number = ToNumber<Number>(text);
        return number && *number >= least && *number <= most;
    };
}

// The rule without "on", as a fault script has it.
std::string FaultProblem(std::string_view text) {
    const auto rule = virtual_dsp::ParseFault("on " + std::string(text));
    return rule.ok() ? "" : rule.error();
}

std::vector<std::string> NextFaultWords(std::span<const std::string> words) {
    return virtual_dsp::NextFaultWords(words.size());
}

std::vector<std::string> StateNames() {
    std::vector<std::string> names;
    names.reserve(std::size(kClientStates));
    for (const ClientState state : kClientStates) names.emplace_back(Name(state));
    return names;
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
        {"BYTES", "a size up to 64M, such as 200K", {}, [](auto text) { return ParseBytes(text).value_or(SIZE_MAX) <= kMaxModelBytes; }},
        {"CHANNELS", "a number of channels", {"1", "2"}},
        {"COUNT", "a whole number from 0 to 4294967295", {}, Any<uint32_t>()},
        {"DATA", "a text", {}, [](auto) { return true; }},
        {"DECIBELS", "decibels from -100 to 40", {}, Between<double>(-100, 40)},
        {"DEVICE", "a device", Names({hal_utils::kSpeaker, hal_utils::kUsbDock, hal_utils::kSpeakerSafe, hal_utils::kSpeakerEarpiece, "headset", "none"})},
        {"FAULT", "a fault such as: command reply id=227 times=1 errno=EIO", {}, [](auto text) { return FaultProblem(text).empty(); }, FaultProblem, NextFaultWords},
        {"FILE", "a file", {}},
        {"FRAME", "a whole number", {}, Any<uint64_t>()},
        {"KIND", "a kind of event", {"phrase", "generic"}},
        {"LEVEL", "a log level", {"verbose", "debug", "info", "warning", "error"}},
        {"MODEL", "the name of a model", {}},
        {"NAME", "a name", {}},
        {"NUMBER", "the number of an engine", {"1", "2", "3"}},
        {"PERCENT", "0 to 100", {}, Between(0, 100)},
        {"RATIO", "a number from 0 to 1", {}, Between<double>(0, 1)},
        {"RESULT", "a result such as 0, -22 or -EINVAL", {}, [](auto text) { return ParseStatus(text).has_value(); }},
        {"SEED", "a seed: a whole number from 0 to 4294967295", {}, Any<uint32_t>()},
        {"SPEED", "a speed from 0.1 to 16", {}, Between(0.1, 16.0)},
        {"STATE", "a runtime state", StateNames()},
        {"STATUS", "a recognition status", {"SUCCESS", "ABORTED", "FAILURE", "FORCED"}},
        {"TAG", "a log tag, or how it begins", {}},
        {"TEXT", "a text", {}},
        {"TIME", "a time up to an hour, such as 2.5s or 300ms", {}, [](auto text) { const double seconds = ParseSeconds(text).value_or(-1); return seconds >= 0 && seconds <= kMaxSeconds; }},
        {"USAGE", "a usage", UsageNames()},
        {"USECASE", "a usecase", Names({hal_utils::kPrimaryPlayback, hal_utils::kDeepBufferPlayback, hal_utils::kCompressOffloadPlayback, hal_utils::kHapticPlayback})},
        {"VERB", "a verb", {}, {}, {}, NextVerbWords},
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
    const auto number = virtual_dsp::ErrnoOf(text.substr(1));
    return number ? std::optional(-*number) : std::nullopt;
}

}  // namespace sthal
