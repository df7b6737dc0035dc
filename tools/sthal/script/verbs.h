#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sthal/script/grammar.h"
#include "tools/sthal/script/session.h"

namespace sthal {

// One verb of the shell and of scenarios: all there is to it. The form of its arguments checks,
// completes and explains them.
struct Verb {
    enum class Where { kAnywhere, kBeginning, kScenario, kShell };

    const char* name;  // One or more words.
    const char* form;  // Of the arguments; see Form.
    const char* help;  // A sentence without its full stop.
    PhoneParts needs = PhoneParts::kNone;
    // Null of what is no action: the parser or the shell takes it.
    VerbResult (*run)(Session& session, const Values& values) = nullptr;
    // What is wrong with the words and the files that the values name, as far as it can be found
    // out without a phone. Null where there is nothing to find.
    host::Result<void> (*check)(const Values& values) = nullptr;
    Where where = Where::kAnywhere;
    bool tells_itself = false;  // Its line need not be shown.
};

// A line that can be carried out.
struct Command {
    const Verb* verb = nullptr;  // Null for an empty line or a comment.
    Values values{};
};

// What a line's words say, or "expected ..., found ...".
host::Result<Command> ParseCommand(std::span<const std::string> words);
host::Result<Command> ParseLine(std::string_view line);

// Words that may follow the given ones, and kinds of values.
NextWords CompleteCommand(std::span<const std::string> words);

// The next words of the verbs whose names begin with the given ones; one that several have in
// common comes several times.
std::vector<std::string> NextVerbWords(std::span<const std::string> words);

// Every verb with its form and its sentence, as lines of text; `topic` restricts it to verbs that
// begin so. The error says that none does.
host::Result<std::string> VerbHelp(std::string_view topic = {});

}  // namespace sthal
