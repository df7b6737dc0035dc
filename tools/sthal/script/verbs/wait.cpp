// The verbs that wait for something.
#include <algorithm>
#include <chrono>
#include <limits>
#include <sstream>

#include "tools/sthal/script/verbs/groups.h"
#include "tools/sthal/script/verbs/tools.h"

namespace sthal {

namespace {

// Longer than anybody waits.
constexpr double kForEver = 3600;

VerbResult Wait(Session& session, const Values& values) {
    (void)session.WaitUntil([] { return false; }, values.Seconds("TIME"), /*exactly=*/true);
    return session.IsInterrupted() ? VerbResult::Interrupted() : VerbResult{};
}

VerbResult WaitEvent(Session& session, const Values& values) {
    constexpr double kSeconds = 5;
    std::optional<int> handle;
    std::string what = "an event";
    if (values.Has("model")) {
        const std::string name = values.Get("model");
        const LoadedModel* const model = session.FindModel(name);
        if (model == nullptr) return Session::NoSuchModel(name);
        handle = model->handle;
        what += " of model " + name;
    }
    const double seconds = values.Seconds("within", kSeconds);
    const auto came = [&] { return session.TakeEvent(handle).has_value(); };
    if (session.WaitUntil(came, seconds)) return {};
    std::ostringstream limit;
    limit << what << " within " << seconds << " s";
    return session.NotInTime(limit.str(), session.DescribeEvents());
}

VerbResult WaitHeard(Session& session, const Values& values) {
    const auto playback = session.playback();
    if (playback == nullptr) return VerbResult::Expected("something said", "nothing so far");
    const double seconds = values.Seconds("TIME", std::numeric_limits<float>::max());
    const double end = std::min(seconds, audio::Seconds(playback->frames()));
    const auto heard = [&] {
        return playback->IsFinished() || audio::Seconds(playback->heard_frames()) >= end;
    };
    // Others may have to be heard before it.
    if (session.WaitUntil(heard, kForEver)) return {};
    return session.NotInTime("it to be heard", "it still playing");
}

// By the clock on the wall: calls on nodes need not have anything to do with the room.
VerbResult WaitFault(Session& session, const Values& values) {
    using std::chrono::steady_clock;
    constexpr double kSeconds = 10;
    const virtual_dsp::FaultPlan& faults = session.board().faults();
    const auto times = static_cast<uint64_t>(values.Number("times", 1));
    std::optional<size_t> rule = session.last_fault();
    if (values.Has("rule")) rule = static_cast<size_t>(values.Number("rule"));
    if (!rule) return VerbResult::Expected("a fault", "none set");
    const auto deadline =
            steady_clock::now() + std::chrono::duration<double>(values.Seconds("within", kSeconds));
    const auto is_over = [&] {
        return faults.Fired(*rule) >= times || steady_clock::now() >= deadline;
    };
    (void)session.WaitUntil(is_over, kForEver);
    if (faults.Fired(*rule) >= times) return {};
    return session.NotInTime("the fault to hit " + Times(times), Times(faults.Fired(*rule)));
}

}  // namespace

std::span<const Verb> WaitVerbs() {
    // clang-format off
    static constexpr Verb kVerbs[] = {
        // A DSP alone hears nothing between what is played, so that the room's time stands still.
        {"wait", "TIME", "let time pass", PhoneParts::kService, Wait},
        {"wait event", "[model MODEL] [within TIME]", "wait for the next event of the framework's callback", PhoneParts::kService, WaitEvent},
        {"wait heard", "[TIME]", "wait until so much of what was said last is heard, or all", PhoneParts::kRoom, WaitHeard},
        {"wait capture", "[within TIME]", "wait for the end of the capture", PhoneParts::kService,
         [](Session& session, const Values& values) { return session.AwaitCapture(values.Seconds("within", Session::kCaptureSeconds)); }},
        {"wait fault", "[rule COUNT] [times COUNT] [within TIME]", "wait until a fault, counted from 0, or the one that was set last, has hit so often (10 s)", PhoneParts::kBoard, WaitFault},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
