#include "tools/sthal/facts/hal_log.h"

#include <algorithm>
#include <charconv>
#include <cstddef>

#include "tools/sthal/facts/run_facts.h"

namespace sthal {

namespace {

// What stood in the places of a text, in their order.
using Words = std::span<const std::string_view>;

std::optional<int> NumberIn(std::string_view word) {
    int number = 0;
    const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (problem != std::errc() || end != word.data() + word.size()) return std::nullopt;
    return number;
}

using What = std::optional<decltype(HalFact::what)>;

What ReadChange(Words words) {
    const auto handle = NumberIn(words[0]);
    const auto from = ClientStateOf(words[1]);
    const auto to = ClientStateOf(words[2]);
    if (!handle || !from || !to) return std::nullopt;
    return ClientChanged{*handle, *from, *to};
}

What ReadRemoval(Words words) {
    const auto handle = NumberIn(words[0]);
    return handle ? What(ClientRemoved{*handle}) : std::nullopt;
}

What ReadFailure(Words words) {
    const auto status = NumberIn(words[0]);
    return status ? What(RecordReadFailed{*status}) : std::nullopt;
}

What ReadRefusal(Words words) {
    const auto state = ClientStateOf(words[0]);
    return state ? What(EventRefused{*state}) : std::nullopt;
}

struct Text {
    std::string_view text;  // `%` is a word; `*` at the end is any rest.
    What (*read)(Words words);
};

constexpr Text kTexts[] = {
        {"ChangeStateTo: client % transits from % to %", ReadChange},
        {"OnSoundCardStateChanged: true", [](Words) { return What(SoundCardReported{true}); }},
        {"OnSoundCardStateChanged: false", [](Words) { return What(SoundCardReported{false}); }},
        {"UnloadSoundModel: Unload model with handle %", ReadRemoval},
        {"StopInternalForce: Unload internal client with %", ReadRemoval},
        {"ControlThreadLoop: Enter", [](Words) { return What(ControlThreadStarted{}); }},
        {"ControlThreadLoop: read trigger event failure: %", ReadFailure},
        {"ControlThreadLoop: read trigger event with model type: %",
         [](Words) { return What(RecordRead{}); }},
        {"ControlThreadLoop: received *", [](Words) { return What(RecordClaimed{}); }},
        {"ControlThreadLoop: requested CallbackProcessing failure from %", ReadRefusal},
};

constexpr size_t kMostWords = 3;
static_assert(std::ranges::all_of(kTexts, [](const Text& one) {
    return std::ranges::count(one.text, '%') <= ptrdiff_t{kMostWords};
}));

// The words of `line` in the places of `text`; none when it is another text.
std::optional<std::array<std::string_view, kMostWords>> Match(std::string_view text,
                                                              std::string_view line) {
    std::array<std::string_view, kMostWords> words;
    size_t count = 0;
    while (!text.empty()) {
        if (text == "*") return words;
        if (text[0] == '%') {
            const std::string_view word = line.substr(0, line.find(' '));
            if (word.empty()) return std::nullopt;
            words[count++] = word;
            line.remove_prefix(word.size());
        } else if (line.empty() || line[0] != text[0]) {
            return std::nullopt;
        } else {
            line.remove_prefix(1);
        }
        text.remove_prefix(1);
    }
    if (!line.empty()) return std::nullopt;
    return words;
}

}  // namespace

const char* Name(ClientState state) {
    switch (state) {
        case ClientState::kModelUnloaded:
            return "ModelUnloaded";
        case ClientState::kModelLoaded:
            return "ModelLoaded";
        case ClientState::kStartDetecting:
            return "StartDetecting";
        case ClientState::kCallbackProcessing:
            return "CallbackProcessing";
        case ClientState::kBuffering:
            return "Buffering";
        case ClientState::kInternalForceDetected:
            return "InternalForceDetected";
    }
    return "";
}

std::optional<ClientState> ClientStateOf(std::string_view name) {
    for (const ClientState state : kClientStates) {
        if (name == Name(state)) return state;
    }
    return std::nullopt;
}

std::optional<HalFact> ReadHalLine(const LogLine& line) {
    for (const Text& text : kTexts) {
        const auto words = Match(text.text, line.text);
        if (!words) continue;
        if (auto what = text.read(*words)) return HalFact{line.ns, line.thread, 0, *what};
    }
    return std::nullopt;
}

std::vector<HalFact> ReadHalLog(std::span<const LogLine> log) {
    std::vector<HalFact> facts;
    for (size_t i = 0; i < log.size(); ++i) {
        auto fact = ReadHalLine(log[i]);
        if (!fact) continue;
        fact->line = i;
        facts.push_back(*fact);
    }
    return facts;
}

}  // namespace sthal
