// What a scenario says of itself: its values, and the text between its steps.
#include "host/virtual_dsp/dsp/journal.h"
#include "tools/sthal/script/verbs/groups.h"

namespace sthal {

namespace {

using Where = Verb::Where;

template <StoryStep::Kind kKind>
VerbResult Tell(Session& session, const Values& values) {
    session.record().Add(
            StoryStep{.ns = virtual_dsp::BoottimeNow(), .kind = kKind, .text = values.Get("TEXT")});
    return {};
}

VerbResult StartPhone(Session& session, const Values&) {
    if (session.HasPhone()) return VerbResult::Expected("no phone yet", "one that is started");
    return VerbResult::Of(session.StartPhone());
}

}  // namespace

std::span<const Verb> StoryVerbs() {
    // clang-format off
    static constexpr Verb kVerbs[] = {
        {.name = "seed", .form = "SEED", .help = "the seed of the room's noise and of the faults", .where = Where::kBeginning},
        {.name = "speed", .form = "SPEED", .help = "how many times faster than real time the microphones hear", .where = Where::kBeginning},
        {.name = "value", .form = "NAME DATA", .help = "a text that $NAME stands for in later lines, unless sthal run is given another one by --set", .where = Where::kBeginning},
        {.name = "when", .form = "NAME VERB...", .help = "the line is there only if the value is neither empty nor off", .where = Where::kScenario},
        {.name = "unless", .form = "NAME VERB...", .help = "the line is there only if the value is empty or off", .where = Where::kScenario},
        {.name = "heading", .form = "TEXT...", .help = "begin a part of the story", .run = Tell<StoryStep::Kind::kHeading>, .tells_itself = true},
        {.name = "heading if-detected", .form = "TEXT...", .help = "begin a part that is left out, up to the next heading, if 'wait detection' got no event", .run = Tell<StoryStep::Kind::kHeading>, .where = Where::kScenario, .tells_itself = true},
        {.name = "explain", .form = "TEXT...", .help = "say more of the part; lines in a row are one paragraph", .run = Tell<StoryStep::Kind::kExplanation>, .tells_itself = true},
        {.name = "remark", .form = "TEXT...", .help = "say something in between", .run = Tell<StoryStep::Kind::kRemark>, .tells_itself = true},
        {.name = "phone start", .form = "", .help = "start the phone here, and not before the first verb; what comes before can do without one", .run = StartPhone, .where = Where::kScenario},
    };
    // clang-format on
    return kVerbs;
}

}  // namespace sthal
