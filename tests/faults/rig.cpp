#include "tests/faults/rig.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace vendor::quarno::brindlecove::audio::hal::soundtrigger {

using Kind = Step::Kind;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

constexpr int kIoHandle = 10;  // Of the hotword; the next one is the music's.
// The framework asks for all that there is, so that the neural canceller is in the game, too.
constexpr int kConfiguration = 1;

std::vector<std::string> Split(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const size_t end = std::min(text.find(separator), text.size());
        parts.emplace_back(text.substr(0, end));
        text.remove_prefix(std::min(end + separator.size(), text.size()));
    }
    return parts;
}

std::string ToText(const Step& step, std::optional<int> result) {
    if (!result) return "done";
    if (step.kind == Kind::kRead && *result >= 0) return *result == 1 ? "audio" : "silence";
    // A handle, and an engine.
    const bool is_number = step.kind == Kind::kLoad || step.kind == Kind::kStartBuffering;
    return std::to_string(is_number ? std::min(*result, 0) : *result);
}

}  // namespace

Rig::Rig(std::unique_ptr<SoundTriggerHal> hal, Detector detector, Bytes hotword_model,
         Bytes music_model)
    : detector_(std::move(detector)),
      driver_(
              std::move(hal),
              [models = std::array{std::move(hotword_model), std::move(music_model)}](
                      int engine, int) { return models[static_cast<size_t>(engine) - 1]; },
              framework_),
      // Only a DSP of which it knows more is compared with what it says of the bytes.
      oracle_({{{1, 1, 1, 1, 1}, {1, 1, 1, 1, 1}}}) {}

std::map<std::string, Step> Rig::Steps() const {
    std::map<std::string, Step> steps = {{"read", {Kind::kRead, kHotwordEngine, 0, 2}},
                                         {"read mono", {Kind::kRead, kHotwordEngine, 0, 1}},
                                         {"read music", {Kind::kRead, kAmbientMusicEngine, 0, 1}},
                                         {"timestamp", {Kind::kRead, kHotwordEngine, 0, 2}},
                                         {"properties", {Kind::kProperties}},
                                         {"internal", {Kind::kInternalForce}},
                                         {"stop internal", {Kind::kStopInternalForce}},
                                         {"buffer internal", {Kind::kStartBuffering, 0, 1}},
                                         {"initialize", {Kind::kRestartHal}},
                                         {"fan", {Kind::kMicSwap, 1}},
                                         {"no fan", {Kind::kMicSwap, 0}},
                                         {"online", {Kind::kOnline, 1}},
                                         {"offline", {Kind::kOnline, 0}},
                                         {"dock", {Kind::kDock, 1}},
                                         {"undock", {Kind::kDock, 0}},
                                         {"speaker", {Kind::kRoute, 2}},
                                         {"primary on speaker", {Kind::kRoute, 1}},
                                         {"no speaker", {Kind::kRoute, 0}},
                                         {"music plays", {Kind::kMetadata, 0, 1}},
                                         {"music ends", {Kind::kMetadata, 0, 0}}};
    for (const int type : {0, 1}) {
        const std::string of = type == 0 ? "" : " music";
        const int handle = handles_[type];
        steps["load" + of] = {Kind::kLoad, type, models_loaded_ % kStepModels};
        steps["unload" + of] = {Kind::kUnload, handle};
        steps["start" + of] = {Kind::kStart, handle, kIoHandle + type, kConfiguration};
        steps["stop" + of] = {Kind::kStop, handle};
        steps["force" + of] = {Kind::kForce, handle};
        steps["buffer" + of] = {Kind::kStartBuffering, kIoHandle + type};
        steps["detect" + of] = {Kind::kDetect, type + 1};
    }
    return steps;
}

void Rig::Reach(std::string_view setup) {
    if (setup == "built") return;
    CarryOutAll("initialize, online");
    CarryOutAll(setup);
}

void Rig::CarryOutAll(std::string_view requests) {
    for (const std::string& request : Split(requests, ", ")) {
        const std::string result = CarryOut(request).result;
        ASSERT_TRUE(IsSuccess(result))
                << request << " of \"" << requests << "\" came to " << result;
    }
}

RequestResult Rig::CarryOut(const std::string& request) {
    const Step step = Steps()[request];
    std::optional<int> predicted = 0;
    if (step.kind == Kind::kRestartHal) {
        oracle_.RestartHal();
    } else {
        predicted = oracle_.Apply(step);
    }
    if (step.kind == Kind::kDetect) predicted = 0;
    const size_t events = framework_->events().size() + oracle_.TakeEvents().size();
    RequestResult result = CarryOutUnpredicted(request);
    result.expected = ToText(step, predicted);
    EXPECT_TRUE(framework_->WaitForEvents(events)) << "after " << request;
    return result;
}

RequestResult Rig::CarryOutUnpredicted(const std::string& request) {
    const auto steps = Steps();
    const auto step = steps.find(request);
    if (step == steps.end()) {
        ADD_FAILURE() << "no such request: " << request;
        return {"no such request", "", milliseconds(0)};
    }
    const auto began = steady_clock::now();
    std::string result = Apply(request, step->second);
    const auto took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - began);
    return {std::move(result), "", took};
}

std::string Rig::Apply(const std::string& request, const Step& step) {
    switch (step.kind) {
        case Kind::kRestartHal:
            return driver_.hal().Initialize() ? "0" : "-1";
        case Kind::kLoad:
            return ToText(step, Load(step));
        case Kind::kDetect:
            return ToText(step, Detect(step.a));
        case Kind::kRead: {
            const std::string audio = ToText(step, Read(step.a, step.c));
            if (request != "timestamp") return audio;
            // The first read after a detection asks for it.
            const bool has_timestamp = driver_.hal().ReadTimestamp(step.a) > 0;
            return audio + (has_timestamp ? ", timestamp" : ", no timestamp");
        }
        default:
            return ToText(step, driver_.Apply(step));
    }
}

std::vector<std::string> Rig::Requests() const {
    std::vector<std::string> requests;
    for (const auto& [request, step] : Steps()) requests.push_back(request);
    return requests;
}

void Rig::WillFail(std::optional<DspOp> operation, int status, int times) {
    if (operation) oracle_.dsp().FailAny(*operation, times, status);
}

void Rig::ExpectAsPredicted(const RequestResult& request, const char* result) {
    EXPECT_EQ(result != nullptr ? result : request.expected, request.result);
    ExpectClients();
}

void Rig::ExpectClients() {
    EXPECT_TRUE(oracle_.clients() == driver_.clients())
            << "clients are: " << soundtrigger::ToText(driver_.clients())
            << "\n  expected: " << soundtrigger::ToText(oracle_.clients());
}

std::string Rig::State() {
    std::string text;
    for (const ClientView& client : driver_.clients()) {
        text += (text.empty() ? "" : ", ") + std::to_string(client.handle) + " " +
                toString(static_cast<RuntimeState>(client.state));
        if (client.is_started) text += " started";
        if (client.is_aec_enabled) text += " aec";
        if (client.is_forced) text += " internal";
    }
    return text.empty() ? "none" : text;
}

void Rig::ExpectDetection(bool restart) {
    (void)CarryOut("stop internal");
    // Both models hear the same.
    if (handles_[1] > 0) (void)CarryOut("stop music");
    (void)CarryOut("no speaker");
    EXPECT_EQ("0", CarryOut("no fan").result) << "it swaps the microphones";
    if (State().find(std::to_string(handles_[0]) + " ") == std::string::npos) {
        EXPECT_EQ("0", CarryOut("load").result);
    }
    if (restart) {
        EXPECT_EQ("0", CarryOut("stop").result);
    }
    EXPECT_EQ("0", CarryOut("start").result);
    EXPECT_EQ("0", CarryOut("detect").result) << State();
}

int Rig::Load(const Step& step) {
    ++models_loaded_;
    const int handle = driver_.Apply(step).value_or(-1);
    if (handle > 0) handles_[step.a] = handle;
    return handle;
}

// As the oracle: 1 for audio, 0 for silence.
int Rig::Read(int engine, int channels) {
    std::vector<char> audio(2048 * static_cast<size_t>(channels), 0x55);
    const int result = driver_.hal().ReadBuffer(engine, audio.data(),
                                                static_cast<unsigned>(audio.size()), channels);
    if (result != static_cast<int>(audio.size())) return result < 0 ? result : -1;
    return std::ranges::count(audio, 0) == std::ssize(audio) ? 0 : 1;
}

int Rig::Detect(int engine) {
    const size_t before = framework_->events().size();
    detector_(engine);
    return framework_->WaitForEvents(before + 1) && framework_->events().size() == before + 1 ? 0
                                                                                              : -1;
}

bool IsSuccess(const std::string& result) {
    return result == "0" || result == "done" || result == "audio" || result == "audio, timestamp";
}

}  // namespace vendor::quarno::brindlecove::audio::hal::soundtrigger
