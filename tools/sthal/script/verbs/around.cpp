// What is around the HAL: the dock, routes, chargers, the tuning file, the dump and the log.
#include <android-base/logging.h>

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"
#include "host/virtual_dsp/dsp/command_table.h"
#include "tools/audio/file_bytes.h"
#include "tools/sthal/script/verbs/groups.h"
#include "tools/sthal/script/verbs/tools.h"

namespace sthal {

namespace {

namespace tamberlo = ::vendor::quarno::brindlecove::audio::hal::utils::tamberlo;

// A tuning file, of its bytes or of its text. A binary one is shipped as it is, right or wrong: the
// HAL has to cope with either.
host::Result<std::vector<uint8_t>> TuningImage(const std::string& path) {
    auto bytes = audio::ReadFileBytes(path);
    if (!bytes.ok() || std::ranges::find(*bytes, 0) != bytes->end()) return bytes;
    const auto file = tamberlo::TuningFileFromText(
            {reinterpret_cast<const char*>(bytes->data()), bytes->size()});
    if (!file.ok()) {
        return host::Error(path + ":" + std::to_string(file.error().line) + ": " +
                           file.error().what);
    }
    auto image = tamberlo::WriteTuningFile(*file);
    if (!image.ok()) return host::Error(path + " makes a tuning file that is too large");
    return image;
}

VerbResult LoadTuning(Session& session, const Values& values) {
    const std::string path = values.Get("FILE");
    const auto image = TuningImage(path);
    if (!image.ok()) return VerbResult::Failed(image.error());
    if (const auto file = tamberlo::ReadTuningFile(*image); !file.ok()) {
        session.Say(path + " is no tuning file: " + file.error().what);
    }
    session.board().SetTuningFile(*image);
    return {};
}

VerbResult ShowTuning(Session& session, const Values&) {
    std::string text;
    for (const auto& [id, value] : session.board().dsp().settings().tuning) {
        text += std::to_string(id) + " " + virtual_dsp::CommandName(id) + " = " +
                std::to_string(value) + "\n";
    }
    session.Show(text.empty() ? "the DSP has no tuning" : text);
    return {};
}

VerbResult ShowDump(Session& session, const Values& values) {
    const std::string tag = values.Get("TAG");
    const std::string_view arguments[] = {tag};
    const std::string text =
            session.service().ReadDump(std::span(arguments).first(tag.empty() ? 0 : 1));
    session.Show(text.empty() ? "no line has a tag that begins with '" + tag +
                                        "'; all tags begin with StHal::"
                              : text);
    return {};
}

VerbResult ShowLogFrom(Session& session, const Values& values) {
    constexpr std::pair<std::string_view, android::base::LogSeverity> kLevels[] = {
            {"verbose", android::base::VERBOSE}, {"debug", android::base::DEBUG},
            {"info", android::base::INFO},       {"warning", android::base::WARNING},
            {"error", android::base::ERROR},
    };
    for (const auto& [name, severity] : kLevels) {
        if (values.Get("LEVEL") != name) continue;
        session.timeline().ShowLogFrom(severity);
        (void)android::base::SetMinimumLogSeverity(std::min(severity, android::base::INFO));
    }
    return {};
}

}  // namespace

std::span<const Verb> AroundVerbs() {
    // clang-format off
    static constexpr auto kBoard = PhoneParts::kBoard;
    static constexpr auto kService = PhoneParts::kService;
    static constexpr Verb kVerbs[] = {
        {"dock", "on|off", "put the phone on its dock or take it off", kService,
         [](Session& session, const Values& values) { session.service().Dock(values.Has("on")); return VerbResult{}; }},
        {"route", "USECASE DEVICE", "route a playback usecase to a device", kService,
         [](Session& session, const Values& values) { session.Route(values.Get("USECASE"), values.Get("DEVICE")); return VerbResult{}; }},
        {"charger", "fan|plain", "put the phone on a charger with a fan or without", kService,
         [](Session& session, const Values& values) { session.service().FanCharger(values.Has("fan")); return VerbResult{}; }},
        {"tuning load", "FILE", "ship a tuning file, binary or text; the HAL reads it when the service starts", kBoard, LoadTuning,
         [](const Values& values) { return WithoutValue(TuningImage(values.Get("FILE"))); }},
        {"tuning none", "", "ship no tuning file; see tuning load", kBoard,
         [](Session& session, const Values&) { session.board().RemoveTuningFile(); return VerbResult{}; }},
        {"tuning show", "", "the values that the DSP has", kBoard, ShowTuning},
        {"dump", "[TAG]", "the HAL's dump, all of it or of one tag", kService, ShowDump},
        {"log level", "LEVEL", "show the HAL's log lines from a level on", PhoneParts::kNone, ShowLogFrom},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
