#include "tools/sthal/script/verbs.h"

#include <android-base/strings.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <sstream>
#include <utility>

#include "tools/sthal/script/verbs/groups.h"

namespace sthal {

namespace {

// In the order in which help shows them.
const std::vector<Verb>& Verbs() {
    static const std::vector<Verb> verbs = [] {
        std::vector<Verb> all;
        for (const auto group :
             {StoryVerbs(), ModelVerbs(), CaptureVerbs(), PlayVerbs(), RecordingVerbs(), DspVerbs(),
              AroundVerbs(), WaitVerbs(), ExpectVerbs(), ShellVerbs()}) {
            all.insert(all.end(), group.begin(), group.end());
        }
        return all;
    }();
    return verbs;
}

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
    for (const Verb& verb : Verbs()) {
        const std::vector<std::string> name = NameWords(verb);
        if (name.size() <= longest || CommonWords(name, words) != name.size()) continue;
        found = &verb;
        longest = name.size();
    }
    return found;
}

// Verbs of old scenarios, and what they are called now.
constexpr std::pair<std::string_view, std::string_view> kOldNames[] = {{"hush", "play stop"}};

std::string DescribeUnknownVerb(std::span<const std::string> words) {
    for (const auto& [old_name, name] : kOldNames) {
        if (words[0] != old_name) continue;
        return "expected a verb, found '" + words[0] + "', which is now '" + std::string(name) +
               "'";
    }
    std::set<std::string> families;
    std::vector<std::string> names;
    size_t most = 0;
    for (const Verb& verb : Verbs()) {
        const std::vector<std::string> name = NameWords(verb);
        most = std::max(most, CommonWords(name, words));
        names.push_back(verb.name);
    }
    // As many words as the longest name may have; one too many costs its letters.
    std::optional<std::string> nearest;
    for (size_t count = std::min<size_t>(3, words.size()); count > 0 && !nearest; --count) {
        nearest = NearestMatch(android::base::Join(words.first(count), ' '), names);
    }
    for (const Verb& verb : Verbs()) {
        const std::vector<std::string> name = NameWords(verb);
        if (most > 0 && CommonWords(name, words) == most) families.insert(verb.name);
    }
    std::string text = "expected a verb";
    if (!families.empty()) text += " (" + android::base::Join(families, ", ") + ")";
    text += ", found '" + words[0] + (most > 0 && words.size() > most ? " " + words[most] : "") +
            "'";
    return nearest ? text + "; did you mean '" + *nearest + "'?" : text;
}

}  // namespace

host::Result<Command> ParseCommand(std::span<const std::string> words) {
    if (words.empty()) return Command{};
    const Verb* const verb = FindVerb(words);
    if (verb == nullptr) return host::Error(DescribeUnknownVerb(words));
    auto values = Form(verb->form).Match(words.subspan(NameWords(*verb).size()));
    if (!values.ok()) return host::Error(values.error());
    return Command{.verb = verb, .values = std::move(*values)};
}

host::Result<Command> ParseLine(std::string_view line) {
    const auto words = SplitWords(line);
    if (!words.ok()) return host::Error(words.error());
    return ParseCommand(*words);
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
    for (const Verb& verb : Verbs()) {
        const std::vector<std::string> name = NameWords(verb);
        if (name.size() > words.size() && CommonWords(name, words) == words.size()) {
            next.push_back(name[words.size()]);
        }
    }
    return next;
}

host::Result<std::string> VerbHelp(std::string_view topic) {
    std::string text;
    for (const Verb& verb : Verbs()) {
        if (!std::string_view(verb.name).starts_with(topic)) continue;
        text += verb.name;
        if (*verb.form != '\0') text += std::string(" ") + verb.form;
        text += std::string("\n    ") + verb.help;
        if (verb.where == Verb::Where::kBeginning) text += " (at the beginning of a scenario)";
        if (verb.where == Verb::Where::kScenario) text += " (in a scenario)";
        if (verb.where == Verb::Where::kShell) text += " (in the shell)";
        text += ".\n";
    }
    if (!text.empty()) return text;
    const auto words = SplitWords(topic);
    return host::Error(words.ok() && !words->empty() ? DescribeUnknownVerb(*words)
                                                     : "expected a verb");
}

}  // namespace sthal
