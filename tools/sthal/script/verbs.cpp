#include "tools/sthal/script/verbs.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

#include "tools/sthal/script/expectations.h"
#include "tools/sthal/script/verb_actions.h"

namespace sthal {

namespace {

using Where = Verb::Where;

// clang-format off
constexpr Verb kVerbs[] = {
    {"seed", "SEED", "the seed of the room's noise and of the faults", nullptr, Where::kBeginning},
    {"speed", "SPEED", "how many times faster than real time the microphones hear", nullptr, Where::kBeginning},

    {"load", "keyphrase|generic NAME [say TEXT] [wav FILE] [threshold RATIO] [size BYTES]",
     "load a model of a spoken text (the name, without one), of a WAV file, or, generic, of music; padded to a size", RunLoad,
     Where::kAnywhere, LoadProblem},
    {"unload", "MODEL", "unload a model",
     [](Session& session, const Values& values) { return session.Unload(values[0]); }},
    {"start", "MODEL [io COUNT] [confidence PERCENT] [echo-canceller] [noise-suppression] [no-capture]",
     "start recognition, with the io handle of its capture and what a phrase's extra says", RunStart},
    {"stop", "MODEL", "stop recognition",
     [](Session& session, const Values& values) { return session.Call(values[0], &Phone::Stop); }},
    {"force", "MODEL", "have the DSP report a detection now",
     [](Session& session, const Values& values) { return session.Call(values[0], &Phone::ForceRecognition); }},
    {"properties", "", "ask the HAL for its properties", RunProperties},

    {"capture start", "[io COUNT] [channels CHANNELS] [for TIME] [wav FILE]",
     "read the audio of a detection, for a time or until it is stopped, into a file", RunCapture},
    {"capture zero-latency", "[channels CHANNELS] [for TIME] [wav FILE]",
     "read what the DSP hears from now on, without a detection", RunZeroLatency},
    {"capture stop", "", "end the capture", [](Session& session, const Values&) { return session.StopCapture(); }},

    {"say", "TEXT [after TIME] [louder DECIBELS]", "speak into the microphones", RunSay, Where::kAnywhere, SayProblem},
    {"play wav", "FILE", "play a WAV file into the microphones", RunPlayWav, Where::kAnywhere, PlayWavProblem},
    {"play music", "[for TIME]", "play the music that generic models know into the microphones", RunPlayMusic},
    {"hush", "", "break off what is played into the microphones", RunHush},

    {"dsp crash", "", "crash the DSP, which loses all it had; the sound card monitor reports it offline",
     [](Session& session, const Values&) { session.phone().CrashDsp(); return Outcome{}; }},
    {"dsp online", "", "boot the DSP if it is down; the sound card monitor reports it online", RunDspOnline},
    {"dsp offline", "", "the sound card monitor reports the DSP offline, which it is not",
     [](Session& session, const Values&) { session.phone().ReportDsp(false); return Outcome{}; }},
    {"dsp journal", "[COUNT]", "the latest things that the DSP was told and did", RunJournal},
    {"dsp forget", "", "begin a new journal, which expectations look at", RunForget},
    {"service restart", "", "end the audio service and start it anew: the models are gone, the tuning file is read",
     [](Session& session, const Values&) { return session.RestartService(); }},
    {"fault", "FAULT...", "make calls on a device node fail: NODE OPERATION [id=N] [after=N] [times=N] [chance=P] EFFECT (virtual_board.md)",
     [](Session& session, const Values& values) { return session.AddFault(values[0]); }},
    {"faults clear", "", "lift all faults",
     [](Session& session, const Values&) { session.ClearFaults(); return Outcome{}; }},

    {"dock", "on|off", "put the phone on its dock or take it off",
     [](Session& session, const Values& values) { session.phone().Dock(values[0] == "on"); return Outcome{}; }},
    {"route", "USECASE DEVICE", "route a playback usecase to a device",
     [](Session& session, const Values& values) { session.Route(values[0], values[1]); return Outcome{}; }},
    {"play", "USECASE USAGE [and USAGE]", "tell the usages of a usecase's tracks", RunPlayTracks},
    {"charger", "fan|plain", "put the phone on a charger with a fan or without",
     [](Session& session, const Values& values) { session.phone().FanCharger(values[0] == "fan"); return Outcome{}; }},
    {"tuning load", "FILE", "ship a tuning file, binary or text; the HAL reads it when the service starts", RunTuningLoad,
     Where::kAnywhere, TuningProblem},
    {"tuning none", "", "ship no tuning file; see tuning load",
     [](Session& session, const Values&) { session.phone().board().RemoveTuningFile(); return Outcome{}; }},
    {"tuning show", "", "the values that the DSP has", RunTuningShow},
    {"dump", "[TAG]", "the HAL's dump, all of it or of one tag", RunDump},
    {"log level", "LEVEL", "show the HAL's log lines from a level on", RunLogLevel},

    {"wait", "TIME", "let time pass", RunWait},
    {"wait event", "[model MODEL] [within TIME]", "wait for the next event of the framework's callback", WaitEvent},
    {"wait heard", "[TIME]", "wait until so much of what was said last is heard, or all", WaitHeard},
    {"wait capture", "[within TIME]", "wait for the end of the capture", WaitCapture},
    {"expect event", "[status STATUS] [data DATA] [rate COUNT] [kind KIND]",
     "the event waited for last is like this; the data is a part of its own, or empty if that is", ExpectEvent},
    {"expect no event", "[for TIME]", "no event has come that nobody waited for, and none comes", ExpectNoEvent},
    {"expect result", "RESULT", "what the last call of the HAL returned; one that fails needs this line", ExpectResult},
    {"expect state", "MODEL STATE", "the model's runtime state", ExpectState},
    {"expect capture exact", "[within TIME]", "the capture ends, and is what the microphones heard, sample for sample", ExpectCaptureExact},
    {"expect capture cut", "[within TIME]", "the capture ends, and is what the microphones heard, and from some point on silence", ExpectCaptureCut},
    {"expect capture silent", "[within TIME]", "the capture ends, and is silence", ExpectCaptureSilent},
    {"expect dump contains", "TEXT", "the HAL's dump says this", ExpectDump},
    {"expect log contains", "TEXT", "the HAL has logged this", ExpectLog},
    {"expect dsp command", "COUNT [times COUNT] [result RESULT]", "the DSP has been told this since the journal began", ExpectCommand},
    {"expect no dsp command", "COUNT", "the DSP has not been told this", ExpectNoCommand},
    {"expect fault fired", "[times COUNT]", "the fault that was set last has hit a call", ExpectFaultFired},

    {"help", "[VERB...]", "these lines, or those about one verb", nullptr, Where::kShell},
    {"models", "", "the models that are loaded", nullptr, Where::kShell},
    {"run", "FILE", "carry out the verbs of a scenario on this phone", nullptr, Where::kShell},
    {"save", "FILE", "write this session as a scenario", nullptr, Where::kShell},
    {"quit", "", "end; so does Ctrl-D", nullptr, Where::kShell},
};
// clang-format on

std::vector<std::string> NameWords(const Verb& verb) {
    std::istringstream stream{std::string(verb.name)};
    std::vector<std::string> words;
    for (std::string word; stream >> word;) words.push_back(word);
    return words;
}

// How many of a verb's words the line begins with.
size_t CommonWords(const std::vector<std::string>& name, std::span<const std::string> words) {
    const auto [end, ignored] = std::ranges::mismatch(name, words);
    return static_cast<size_t>(end - name.begin());
}

// The verb with the longest name that the line begins with.
const Verb* FindVerb(std::span<const std::string> words) {
    const Verb* found = nullptr;
    size_t longest = 0;
    for (const Verb& verb : kVerbs) {
        const std::vector<std::string> name = NameWords(verb);
        if (name.size() <= longest || CommonWords(name, words) != name.size()) continue;
        found = &verb;
        longest = name.size();
    }
    return found;
}

std::string DescribeUnknownVerb(std::span<const std::string> words) {
    std::set<std::string> families;
    std::vector<std::string> names;
    size_t most = 0;
    for (const Verb& verb : kVerbs) {
        const std::vector<std::string> name = NameWords(verb);
        most = std::max(most, CommonWords(name, words));
        names.push_back(verb.name);
    }
    // As many words as the longest name may have; one too many costs its letters.
    std::optional<std::string> nearest;
    for (size_t count = std::min<size_t>(3, words.size()); count > 0 && !nearest; --count) {
        std::string found;
        for (const std::string& word : words.first(count)) {
            found += (found.empty() ? "" : " ") + word;
        }
        nearest = NearestMatch(found, names);
    }
    for (const Verb& verb : kVerbs) {
        const std::vector<std::string> name = NameWords(verb);
        if (most > 0 && CommonWords(name, words) == most) families.insert(verb.name);
    }
    std::string text = "expected a verb";
    for (const std::string& name : families) {
        text += (name == *families.begin() ? " (" : ", ") + name;
    }
    text += families.empty() ? ", found '" : "), found '";
    text += words[0] + (most > 0 && words.size() > most ? " " + words[most] : "") + "'";
    return nearest ? text + "; did you mean '" + *nearest + "'?" : text;
}

}  // namespace

audio::Result<Command> ParseCommand(std::string_view line) {
    using Parsed = audio::Result<Command>;
    auto words = SplitWords(line);
    if (!words) return Parsed::Error(words.error);
    if (words->empty()) return Parsed::Of({});
    const Verb* const verb = FindVerb(*words);
    if (verb == nullptr) return Parsed::Error(DescribeUnknownVerb(*words));
    auto values = Form(verb->form).Match(std::span(*words).subspan(NameWords(*verb).size()));
    if (!values) return Parsed::Error(values.error);
    return Parsed::Of({.verb = verb, .values = std::move(*values.value)});
}

NextWords CompleteCommand(std::span<const std::string> words) {
    NextWords next;
    if (const Verb* const verb = FindVerb(words)) {
        next = Form(verb->form).Next(words.subspan(NameWords(*verb).size()));
    }
    std::ranges::copy(NextVerbWords(words), std::back_inserter(next.literals));
    return next;
}

std::vector<std::string> NextVerbWords(std::span<const std::string> words) {
    std::vector<std::string> next;
    for (const Verb& verb : kVerbs) {
        const std::vector<std::string> name = NameWords(verb);
        if (name.size() > words.size() && CommonWords(name, words) == words.size()) {
            next.push_back(name[words.size()]);
        }
    }
    return next;
}

std::string UnknownVerb(std::string_view line) {
    const auto words = SplitWords(line);
    return words && !words->empty() ? DescribeUnknownVerb(*words) : "expected a verb";
}

std::string VerbHelp(std::string_view topic) {
    std::string text;
    for (const Verb& verb : kVerbs) {
        if (!std::string_view(verb.name).starts_with(topic)) continue;
        text += verb.name;
        if (*verb.form != '\0') text += std::string(" ") + verb.form;
        text += std::string("\n    ") + verb.help;
        if (verb.where == Where::kBeginning) text += " (at the beginning of a scenario)";
        if (verb.where == Where::kShell) text += " (in the shell)";
        text += ".\n";
    }
    return text;
}

}  // namespace sthal
