// The DSP, its faults, and the service that drives it.
#include <algorithm>
#include <cstdio>
#include <sstream>

#include "host/virtual_dsp/nodes/fault_text.h"
#include "tools/sthal/script/verbs/groups.h"

namespace sthal {

namespace {

// The sound card monitor's report, where there is one.
void Report(Session& session, bool online) {
    if (Service* const service = session.phone().service()) service->ReportDsp(online);
}

VerbResult Crash(Session& session, const Values&) {
    session.board().dsp().Crash();
    Report(session, false);
    return {};
}

VerbResult GoOnline(Session& session, const Values&) {
    if (!session.board().dsp().IsUp()) session.board().dsp().Boot();
    Report(session, true);
    return {};
}

VerbResult ShowJournal(Session& session, const Values& values) {
    constexpr double kLatest = 20;
    const auto entries = session.board().dsp().journal().Snapshot();
    const auto count = static_cast<size_t>(values.Number("COUNT", kLatest));
    std::string text;
    for (size_t i = entries.size() - std::min(count, entries.size()); i < entries.size(); ++i) {
        char time[32];
        const int64_t ns = entries[i].boottime_ns - session.record().start_ns();
        (void)std::snprintf(time, sizeof(time), "%.3f s  ", static_cast<double>(ns) / 1e9);
        text += time + ToLine(entries[i]) + '\n';
    }
    session.Show(text);
    return {};
}

VerbResult Forget(Session& session, const Values&) {
    session.board().dsp().journal().Clear();
    session.log().Clear();
    return {};
}

VerbResult ShowEngine(Session& session, const Values& values) {
    const auto number = static_cast<int>(values.Number("NUMBER"));
    const auto view = session.board().dsp().engine(static_cast<virtual_dsp::Engine>(number));
    std::ostringstream text;
    text << "loaded=" << view.model_loaded << " detecting=" << view.detecting
         << " bytes=" << view.model_bytes << " crc32=" << view.model_crc32;
    session.Show(text.str());
    return {};
}

VerbResult AddFault(Session& session, const Values& values) {
    const auto rule = virtual_dsp::ParseFault("on " + values.Get("FAULT"));
    if (!rule.ok()) return VerbResult::Failed(rule.error());
    session.AddFault(*rule);
    return {};
}

}  // namespace

std::span<const Verb> DspVerbs() {
    // clang-format off
    static constexpr auto kBoard = PhoneParts::kBoard;
    static constexpr auto kService = PhoneParts::kService;
    static constexpr Verb kVerbs[] = {
        {"dsp crash", "", "crash the DSP, which loses all it had; the sound card monitor reports it offline", kBoard, Crash},
        {"dsp online", "", "boot the DSP if it is down; the sound card monitor reports it online", kBoard, GoOnline},
        {"dsp offline", "", "the sound card monitor reports the DSP offline, which it is not", kService,
         [](Session& session, const Values&) { Report(session, false); return VerbResult{}; }},
        {"dsp journal", "[COUNT]", "the latest things that the DSP was told and did", kBoard, ShowJournal},
        {"dsp forget", "", "begin a new journal, which expectations look at", kBoard, Forget},
        {"dsp engine", "NUMBER", "what an engine holds and does", kBoard, ShowEngine},
        {"service restart", "", "end the audio service and start it anew: the models are gone, the tuning file is read", kService,
         [](Session& session, const Values&) { return session.RestartService(); }},
        {"fault", "FAULT...", "make calls on a device node fail: NODE OPERATION [id=N] [after=N] [times=N] [chance=P] EFFECT (virtual_board.md)", kBoard, AddFault},
        {"faults clear", "", "lift all faults", kBoard,
         [](Session& session, const Values&) { session.ClearFaults(); return VerbResult{}; }},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
