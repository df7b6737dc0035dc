#include "tools/sthal/script/completion.h"

#include <set>

#include "host/virtual_dsp/nodes/node_table.h"
#include "tools/sthal/script/verbs.h"

namespace sthal {

namespace {

// What may come next in a rule of a fault: a node, an operation, then conditions and an effect.
std::vector<std::string> FaultWords(size_t words) {
    if (words > 1) {
        return {"id=",   "after=", "times=", "chance=", "errno=", "short=",
                "torn=", "at=",    "delay=", "hang",    "ready"};
    }
    if (words == 1) return {"open", "read", "write", "poll", "reply"};
    std::vector<std::string> nodes;
    nodes.reserve(virtual_dsp::kNodes.size());
    for (const virtual_dsp::NodeInfo& node : virtual_dsp::kNodes) nodes.emplace_back(node.name);
    return nodes;
}

// What takes the rest of the line is one value to its form, and several words to who types it.
NextWords WordsAfter(std::span<const std::string> words) {
    if (!words.empty() && words[0] == "help") {
        return {.literals = NextVerbWords(words.subspan(1)), .kinds = {}};
    }
    if (!words.empty() && words[0] == "fault") {
        return {.literals = FaultWords(words.size() - 1), .kinds = {}};
    }
    return CompleteCommand(words);
}

}  // namespace

Completion Complete(std::string_view before, std::string_view begin, const Session& session) {
    const auto words = SplitWords(before);
    if (!words) return {};
    const NextWords next = WordsAfter(*words);
    std::set<std::string> candidates(next.literals.begin(), next.literals.end());
    Completion completion;
    for (const ValueKind* const kind : next.kinds) {
        const std::string_view name = kind->name;
        candidates.insert(kind->choices.begin(), kind->choices.end());
        if (name == "FILE") completion.wants_file = true;
        if (name == "MODEL") {
            for (const auto& [model, ignored] : session.models()) candidates.insert(model);
        }
    }
    for (const std::string& candidate : candidates) {
        if (candidate.starts_with(begin)) completion.words.push_back(candidate);
    }
    return completion;
}

}  // namespace sthal
