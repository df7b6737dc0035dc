#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tools/sthal/script/grammar.h"
#include "tools/sthal/script/session.h"

namespace sthal {

// One verb of the shell and of scenarios. The table of verbs is all there is to one: its arguments'
// form checks, completes and explains them.
struct Verb {
    enum class Where { kAnywhere, kBeginning, kShell };

    const char* name;  // One or more words.
    const char* form;  // Of the arguments; see Form.
    const char* help;  // A sentence without its full stop.
    Outcome (*run)(Session& session,
                   const Values& values);  // Null at the beginning, or in a shell.
    Where where = Where::kAnywhere;
    // What is wrong with the words and the files that the values name, or nothing: what can be
    // found out without a phone. Null where there is nothing to find.
    std::string (*find_problem)(const Values& values) = nullptr;
};

// A line that can be carried out.
struct Command {
    const Verb* verb = nullptr;  // Null for an empty line or a comment.
    Values values{};
};

// What a line says, or "expected ..., found ...".
audio::Result<Command> ParseCommand(std::string_view line);

// Words that may follow the given ones, and kinds of values.
NextWords CompleteCommand(std::span<const std::string> words);

// The next words of the verbs whose names begin with the given ones; one that several have in
// common comes several times.
std::vector<std::string> NextVerbWords(std::span<const std::string> words);

// What is said of a line that begins with no verb.
std::string UnknownVerb(std::string_view line);

// Every verb with its form and its sentence, as lines of text; `topic` restricts it to verbs that
// begin so. Empty when none does.
std::string VerbHelp(std::string_view topic = {});

}  // namespace sthal
