// What only a shell needs.
#include <sstream>

#include "tools/sthal/script/verbs/groups.h"

namespace sthal {

namespace {

VerbResult Help(Session& session, const Values& values) {
    const auto text = VerbHelp(values.Get("VERB"));
    if (!text.ok()) return VerbResult::Failed(text.error());
    session.terminal().Print(*text);
    return {};
}

VerbResult ShowModels(Session& session, const Values&) {
    std::ostringstream text;
    for (const auto& [name, model] : session.models()) {
        text << name << ": model " << model.handle << ", "
             << (model.is_generic ? "generic" : "keyphrase") << ", "
             << audio::Seconds(model.pattern.frames()) << " s of audio\n";
    }
    session.Show(session.models().empty() ? "none is loaded" : text.str());
    return {};
}

}  // namespace

std::span<const Verb> ShellVerbs() {
    // clang-format off
    static constexpr Verb kVerbs[] = {
        {.name = "help", .form = "[VERB...]", .help = "these lines, or those about one verb", .run = Help, .where = Verb::Where::kShell},
        {.name = "models", .form = "", .help = "the models that are loaded", .run = ShowModels, .where = Verb::Where::kShell},
        {.name = "run", .form = "FILE", .help = "carry out the verbs of a scenario on this phone", .where = Verb::Where::kShell},
        {.name = "save", .form = "FILE", .help = "write this session as a scenario", .where = Verb::Where::kShell},
        {.name = "quit", .form = "", .help = "end; so does Ctrl-D", .where = Verb::Where::kShell},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
