// The verbs that fail when something is not so. What the HAL or the DSP does by itself is given up
// to a second to happen.
#include <algorithm>
#include <sstream>

#include "host/virtual_dsp/dsp/command_table.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/script/verbs/groups.h"
#include "tools/sthal/script/verbs/tools.h"

namespace sthal {

namespace {

// Up to a second by the clock on the wall.
constexpr double kSoon = 0;

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

// --- events ---

VerbResult ExpectEvent(Session& session, const Values& values) {
    const auto& event = session.last_event();
    if (!event) return VerbResult::Expected("an event", "none; 'wait event' takes one");
    const auto& common = event->event.common;
    const std::string data(common.data.begin(), common.data.end());
    const std::string rate =
            common.audioConfig ? std::to_string(common.audioConfig->base.sampleRate) : "none";
    const std::pair<const char*, std::string> properties[] = {
            {"status", toString(common.status)},
            {"data", data},
            {"rate", rate},
            {"kind", event->is_phrase ? "phrase" : "generic"},
    };
    for (const auto& [name, seen] : properties) {
        const std::string wanted = values.Get(name);
        const bool is_part = std::string_view(name) == "data" && !wanted.empty() &&
                             seen.find(wanted) != std::string::npos;
        if (!values.Has(name) || wanted == seen || is_part) continue;
        return VerbResult::Expected(std::string("an event with ") + name + " " + wanted,
                                    ToText(*event));
    }
    return {};
}

VerbResult ExpectNoEvent(Session& session, const Values& values) {
    const auto came = [&] { return session.TakeEvent(std::nullopt).has_value(); };
    if (session.WaitUntil(came, values.Seconds("for"), /*exactly=*/true)) {
        return VerbResult::Expected("no event", ToText(*session.last_event()));
    }
    return session.IsInterrupted() ? VerbResult::Interrupted() : VerbResult{};
}

// --- the HAL ---

VerbResult ExpectResult(Session& session, const Values& values) {
    (void)session.TakeFailedResult();
    const int result = *ParseStatus(values.Get("RESULT"));
    const std::optional<int> seen = session.last_result();
    if (seen == result) return {};
    return VerbResult::Expected("the result " + std::to_string(result),
                                seen ? std::to_string(*seen) : "no call of the HAL so far");
}

// What the dump says of the runtime state of the client with this handle.
std::string StateOf(Session& session, int handle) {
    std::istringstream dump(session.service().ReadDump());
    const std::string client = "Client: " + std::to_string(handle);
    constexpr std::string_view kState = "Runtime state: ";
    bool is_client = false;
    for (std::string line; std::getline(dump, line);) {
        const size_t begin = std::min(line.find_first_not_of(' '), line.size());
        const std::string_view text = std::string_view(line).substr(begin);
        if (text.starts_with("Client: ")) is_client = text == client;
        if (is_client && text.starts_with(kState)) return std::string(text.substr(kState.size()));
    }
    return "no such client";
}

VerbResult ExpectState(Session& session, const Values& values) {
    const std::string name = values.Get("MODEL");
    const std::string state = values.Get("STATE");
    const LoadedModel* const model = session.FindModel(name);
    if (model == nullptr) return Session::NoSuchModel(name);
    std::string seen;
    const auto is_so = [&] { return (seen = StateOf(session, model->handle)) == state; };
    if (session.WaitUntil(is_so, kSoon)) return {};
    return session.NotInTime("model " + name + " in the state " + state, seen);
}

VerbResult ExpectDump(Session& session, const Values& values) {
    const std::string text = values.Get("TEXT");
    std::string dump;
    const auto is_so = [&] {
        return (dump = session.service().ReadDump()).find(text) != std::string::npos;
    };
    if (session.WaitUntil(is_so, kSoon)) return {};
    session.Show(dump);
    return session.NotInTime("a dump with " + Quoted(text), "one without it");
}

VerbResult ExpectLog(Session& session, const Values& values) {
    const std::string text = values.Get("TEXT");
    if (session.WaitUntil([&] { return session.log().Contains(text); }, kSoon)) return {};
    return session.NotInTime("a log line with " + Quoted(text), "none");
}

// --- captures ---

VerbResult EndOfCapture(Session& session, const Values& values) {
    return session.AwaitCapture(values.Seconds("within", Session::kCaptureSeconds));
}

VerbResult ExpectCaptureExact(Session& session, const Values& values) {
    if (VerbResult ended = EndOfCapture(session, values); !ended.ok()) return ended;
    const audio::Comparison comparison = session.capture()->CompareWithMicrophones();
    session.Say(comparison.ToString());
    if (comparison.IsExact() && comparison.capture_frames > 0) return {};
    return VerbResult::Expected("a capture that is what the microphones heard",
                                comparison.ToString());
}

VerbResult ExpectCaptureCut(Session& session, const Values& values) {
    if (VerbResult ended = EndOfCapture(session, values); !ended.ok()) return ended;
    const audio::Sound& sound = session.capture()->sound();
    const auto last_heard = std::find_if(sound.samples.rbegin(), sound.samples.rend(),
                                         [](int16_t sample) { return sample != 0; });
    const auto channels = static_cast<size_t>(sound.channels);
    const auto silent = static_cast<size_t>(last_heard - sound.samples.rbegin()) / channels;
    const audio::Comparison comparison =
            session.capture()->CompareWithMicrophones(sound.frames() - silent);
    const std::string seen =
            comparison.ToString() + "\n  then " + std::to_string(silent) + " frames of silence";
    session.Say(seen);
    if (comparison.IsExact() && comparison.capture_frames > 0 && silent > 0) return {};
    return VerbResult::Expected("a capture that is what the microphones heard, and then silence",
                                seen);
}

VerbResult ExpectCaptureSilent(Session& session, const Values& values) {
    if (VerbResult ended = EndOfCapture(session, values); !ended.ok()) return ended;
    const auto& samples = session.capture()->sound().samples;
    const auto loud = std::ranges::count_if(samples, [](int16_t sample) { return sample != 0; });
    if (loud == 0 && !samples.empty()) return {};
    return VerbResult::Expected("a capture of nothing but silence",
                                std::to_string(loud) + " of " + std::to_string(samples.size()) +
                                        " samples that are not 0");
}

// --- the DSP ---

struct CommandCount {
    size_t told = 0;
    std::string results;  // Of those with another result.
};

CommandCount CountCommand(Session& session, uint32_t id, std::optional<int> result) {
    CommandCount count;
    for (const auto& entry : session.board().dsp().journal().Snapshot()) {
        const auto* const command = entry.As<virtual_dsp::CommandAnswered>();
        if (command == nullptr || command->id != id) continue;
        if (!result || command->status == *result) {
            ++count.told;
        } else {
            count.results += (count.results.empty() ? "" : ", ") + std::to_string(command->status);
        }
    }
    return count;
}

std::string CommandText(uint32_t id) {
    return "command " + std::to_string(id) + " " + virtual_dsp::CommandName(id);
}

VerbResult ExpectCommand(Session& session, const Values& values) {
    const auto id = static_cast<uint32_t>(values.Number("COUNT"));
    const std::optional<int> result = ParseStatus(values.Get("result"));
    const bool is_counted = values.Has("times");
    const auto times = static_cast<size_t>(values.Number("times", 1));
    CommandCount count;
    const auto is_so = [&] {
        count = CountCommand(session, id, result);
        return is_counted ? count.told == times : count.told >= times;
    };
    if (session.WaitUntil(is_so, kSoon)) return {};
    std::string what = CommandText(id) + " " + Times(times);
    if (result) what += " with the result " + std::to_string(*result);
    std::string seen = Times(count.told);
    if (!count.results.empty()) seen += "; other results: " + count.results;
    return session.NotInTime(what, seen);
}

VerbResult ExpectNoCommand(Session& session, const Values& values) {
    const auto id = static_cast<uint32_t>(values.Number("COUNT"));
    const CommandCount count = CountCommand(session, id, std::nullopt);
    if (count.told == 0) return {};
    return VerbResult::Expected("no " + CommandText(id), Times(count.told));
}

VerbResult ExpectFault(Session& session, const Values& values) {
    if (!session.last_fault()) return VerbResult::Expected("a fault", "none set");
    const auto times = static_cast<uint64_t>(values.Number("times", 1));
    const auto hits = [&] { return session.board().faults().Fired(*session.last_fault()); };
    if (session.WaitUntil([&] { return hits() >= times; }, kSoon)) return {};
    return session.NotInTime("the fault to hit " + Times(times), Times(hits()));
}

}  // namespace

std::span<const Verb> ExpectVerbs() {
    // clang-format off
    static constexpr auto kBoard = PhoneParts::kBoard;
    static constexpr auto kService = PhoneParts::kService;
    static constexpr Verb kVerbs[] = {
        {"expect event", "[status STATUS] [data DATA] [rate COUNT] [kind KIND]",
         "the event waited for last is like this; the data is a part of its own, or empty if that is", kService, ExpectEvent},
        {"expect no event", "[for TIME]", "no event has come that nobody waited for, and none comes", kService, ExpectNoEvent},
        {"expect result", "RESULT", "what the last call of the HAL returned; one that fails needs this line", kService, ExpectResult},
        {"expect state", "MODEL STATE", "the model's runtime state", kService, ExpectState},
        {"expect capture exact", "[within TIME]", "the capture ends, and is what the microphones heard, sample for sample", kService, ExpectCaptureExact},
        {"expect capture cut", "[within TIME]", "the capture ends, and is what the microphones heard, and from some point on silence", kService, ExpectCaptureCut},
        {"expect capture silent", "[within TIME]", "the capture ends, and is silence", kService, ExpectCaptureSilent},
        {"expect dump contains", "TEXT", "the HAL's dump says this", kService, ExpectDump},
        {"expect log contains", "TEXT", "the HAL has logged this", kService, ExpectLog},
        {"expect dsp command", "COUNT [times COUNT] [result RESULT]", "the DSP has been told this since the journal began", kBoard, ExpectCommand},
        {"expect no dsp command", "COUNT", "the DSP has not been told this", kBoard, ExpectNoCommand},
        {"expect fault fired", "[times COUNT]", "the fault that was set last has hit a call", kBoard, ExpectFault},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
