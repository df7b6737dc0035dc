#include "tools/sthal/script/expectations.h"

#include <algorithm>
#include <limits>
#include <sstream>

namespace sthal {

namespace {

constexpr double kEventSeconds = 5;
constexpr double kCaptureSeconds = 10;

// Up to a second by the clock on the wall.
constexpr double kSoon = 0;

double SecondsOf(const std::string& text, double otherwise) {
    return ParseSeconds(text).value_or(otherwise);
}

std::string Quoted(const std::string& text) {
    return "'" + text + "'";
}

// What the dump says of the runtime state of the client with this handle.
std::string StateOf(Session& session, int handle) {
    std::istringstream dump(session.phone().Dump());
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

struct CommandCount {
    size_t told = 0;
    std::string results;  // Of those with another result.
};

CommandCount CountCommand(Session& session, uint32_t id, std::optional<int> result) {
    CommandCount count;
    for (const auto& entry : session.phone().board().dsp().journal().Snapshot()) {
        if (entry.command_id != id) continue;
        if (!result || entry.result == *result) {
            ++count.told;
        } else {
            count.results += (count.results.empty() ? "" : ", ") + std::to_string(entry.result);
        }
    }
    return count;
}

std::string CommandText(uint32_t id) {
    return "command " + std::to_string(id) + " " + virtual_dsp::CommandName(id);
}

std::string Times(size_t count) {
    return std::to_string(count) + (count == 1 ? " time" : " times");
}

uint32_t Id(const Values& values) {
    return static_cast<uint32_t>(std::stoul(values[0]));
}

// Empty, or what went wrong before the capture's end.
Outcome EndOfCapture(Session& session, const Values& values) {
    CaptureJob* const capture = session.capture();
    if (capture == nullptr) return Outcome::Expected("a capture", "none so far");
    // By the clock on the wall, which is the pace of silence in place of audio.
    const double seconds = SecondsOf(values.Get("within"), kCaptureSeconds) *
                           std::max(1.0, session.options().speed);
    const bool ended = session.WaitUntil([&] { return capture->IsFinished(); }, seconds);
    if (!ended) return session.NotInTime("the end of the capture", "it going on");
    return session.StopCapture();
}

}  // namespace

// --- waits ---

Outcome RunWait(Session& session, const Values& values) {
    (void)session.WaitUntil([] { return false; }, SecondsOf(values[0], 0), /*exactly=*/true);
    if (session.IsInterrupted()) return {.kind = Outcome::Kind::kInterrupted, .text = {}};
    return {};
}

Outcome WaitEvent(Session& session, const Values& values) {
    std::optional<int> handle;
    std::string what = "an event";
    if (values.Has("model")) {
        const Session::Model* const model = session.FindModel(values.Get("model"));
        if (model == nullptr) {
            return Outcome::Expected("the name of a model", Quoted(values.Get("model")));
        }
        handle = model->handle;
        what += " of model " + values.Get("model");
    }
    const double seconds = SecondsOf(values.Get("within"), kEventSeconds);
    const auto came = [&] { return session.TakeEvent(handle).has_value(); };
    if (session.WaitUntil(came, seconds)) return {};
    std::ostringstream limit;
    limit << what << " within " << seconds << " s";
    return session.NotInTime(limit.str(), session.DescribeEvents());
}

Outcome WaitHeard(Session& session, const Values& values) {
    const Playback* const playback = session.playback();
    if (playback == nullptr) return Outcome::Expected("something said", "nothing so far");
    const double seconds = SecondsOf(values.Get("TIME"), std::numeric_limits<float>::max());
    const double end = std::min(seconds, audio::Seconds(playback->frames()));
    const auto heard = [&] {
        return playback->IsFinished() || audio::Seconds(playback->heard_frames()) >= end;
    };
    // Others may have to be heard before it.
    constexpr double kLongest = 3600;
    if (session.WaitUntil(heard, kLongest)) return {};
    return session.NotInTime("it to be heard", "it still playing");
}

Outcome WaitCapture(Session& session, const Values& values) {
    return EndOfCapture(session, values);
}

// --- events ---

Outcome ExpectEvent(Session& session, const Values& values) {
    const auto& event = session.last_event();
    if (!event) return Outcome::Expected("an event", "none; 'wait event' takes one");
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
        return Outcome::Expected(std::string("an event with ") + name + " " + values.Get(name),
                                 event->ToString());
    }
    return {};
}

Outcome ExpectNoEvent(Session& session, const Values& values) {
    const double seconds = SecondsOf(values.Get("for"), 0);
    const auto came = [&] { return session.TakeEvent(std::nullopt).has_value(); };
    if (session.WaitUntil(came, seconds, /*exactly=*/true)) {
        return Outcome::Expected("no event", session.last_event()->ToString());
    }
    if (session.IsInterrupted()) return {.kind = Outcome::Kind::kInterrupted, .text = {}};
    return {};
}

// --- the HAL ---

Outcome ExpectResult(Session& session, const Values& values) {
    (void)session.TakeFailedResult();
    const int result = *ParseStatus(values[0]);
    const std::optional<int> seen = session.last_result();
    if (seen == result) return {};
    return Outcome::Expected("the result " + std::to_string(result),
                             seen ? std::to_string(*seen) : "no call of the HAL so far");
}

Outcome ExpectState(Session& session, const Values& values) {
    const Session::Model* const model = session.FindModel(values[0]);
    if (model == nullptr) return Outcome::Expected("the name of a model", Quoted(values[0]));
    std::string seen;
    const auto is_so = [&] { return (seen = StateOf(session, model->handle)) == values[1]; };
    if (session.WaitUntil(is_so, kSoon)) return {};
    return session.NotInTime("model " + values[0] + " in the state " + values[1], seen);
}

Outcome ExpectDump(Session& session, const Values& values) {
    std::string dump;
    const auto is_so = [&] {
        return (dump = session.phone().Dump()).find(values[0]) != std::string::npos;
    };
    if (session.WaitUntil(is_so, kSoon)) return {};
    session.Show(dump);
    return session.NotInTime("a dump with " + Quoted(values[0]), "one without it");
}

Outcome ExpectLog(Session& session, const Values& values) {
    if (session.WaitUntil([&] { return session.HasLogged(values[0]); }, kSoon)) return {};
    return session.NotInTime("a log line with " + Quoted(values[0]), "none");
}

// --- captures ---

Outcome ExpectCaptureExact(Session& session, const Values& values) {
    if (Outcome ended = EndOfCapture(session, values); !ended.ok()) return ended;
    const audio::Comparison comparison = session.capture()->CompareWithMicrophones();
    session.Say(comparison.ToString());
    if (comparison.IsExact() && comparison.capture_frames > 0) return {};
    return Outcome::Expected("a capture that is what the microphones heard", comparison.ToString());
}

Outcome ExpectCaptureCut(Session& session, const Values& values) {
    if (Outcome ended = EndOfCapture(session, values); !ended.ok()) return ended;
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
    return Outcome::Expected("a capture that is what the microphones heard, and then silence",
                             seen);
}

Outcome ExpectCaptureSilent(Session& session, const Values& values) {
    if (Outcome ended = EndOfCapture(session, values); !ended.ok()) return ended;
    const auto& samples = session.capture()->sound().samples;
    const auto loud = std::ranges::count_if(samples, [](int16_t sample) { return sample != 0; });
    if (loud == 0 && !samples.empty()) return {};
    return Outcome::Expected("a capture of nothing but silence",
                             std::to_string(loud) + " of " + std::to_string(samples.size()) +
                                     " samples that are not 0");
}

// --- the DSP ---

Outcome ExpectCommand(Session& session, const Values& values) {
    const uint32_t id = Id(values);
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

Outcome ExpectNoCommand(Session& session, const Values& values) {
    const CommandCount count = CountCommand(session, Id(values), std::nullopt);
    if (count.told == 0) return {};
    return Outcome::Expected("no " + CommandText(Id(values)), Times(count.told));
}

Outcome ExpectFaultFired(Session& session, const Values& values) {
    if (!session.last_fault()) return Outcome::Expected("a fault", "none set");
    const auto times = static_cast<uint64_t>(values.Number("times", 1));
    const auto fired = [&] {
        return session.phone().board().faults().Fired(*session.last_fault());
    };
    if (session.WaitUntil([&] { return fired() >= times; }, kSoon)) return {};
    return session.NotInTime("the fault to hit " + Times(times), Times(fired()));
}

}  // namespace sthal
