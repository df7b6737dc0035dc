#include "tools/sthal/completion.h"

#include <set>

#include "tools/sthal/verbs.h"

namespace sthal {

Completion Complete(std::string_view before, std::string_view begin, const Session& session) {
    const auto words = SplitWords(before);
    if (!words) return {};
    const NextWords next = CompleteCommand(*words);
    std::set<std::string> candidates(next.literals.begin(), next.literals.end());
    Completion completion;
    for (const ValueKind* const kind : next.kinds) {
        const std::string_view name = kind->name;
        candidates.insert(kind->choices.begin(), kind->choices.end());
        if (name == "FILE") completion.wants_file = true;
        if (name == "MODEL") {
            for (const auto& [model, ignored] : session.models()) candidates.insert(model);
        }
        if (name == "VERB") {
            for (const Verb& verb : Verbs()) candidates.insert(verb.name);
        }
    }
    for (const std::string& candidate : candidates) {
        if (candidate.starts_with(begin)) completion.words.push_back(candidate);
    }
    return completion;
}

}  // namespace sthal
