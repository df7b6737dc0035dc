#include "tools/sthal/commands/shell.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <utility>

// After stdio, which it needs and does not include.
#include <readline/history.h>
#include <readline/readline.h>

#include "tools/audio/file_bytes.h"
#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/script/line_reader.h"
#include "tools/sthal/script/scenario.h"

namespace sthal {

namespace {

constexpr char kPrompt[] = "sthal> ";
constexpr int kHistoryLines = 1000;
constexpr double kShortestPause = 0.3;  // In seconds: below it nobody has waited for anything.

// A signal that comes just before the wait for a key would otherwise go unseen until the next one.
constexpr int kLookForInputMs = 200;

// readline's callbacks carry no context.
Shell* the_shell = nullptr;
const Session* the_session = nullptr;

std::string HistoryFile() {
    const char* const home = std::getenv("HOME");
    return home == nullptr ? "" : std::string(home) + "/.sthal_history";
}

// What the word being typed may be completed to: what begins like it of all that may come next.
char** CompleteWord(const char* text, int start, int /*end*/) {
    rl_attempted_completion_over = 1;
    const auto words = SplitWords({rl_line_buffer, static_cast<size_t>(start)});
    if (!words.ok()) return nullptr;
    const NextWords next = CompleteCommand(*words);
    static std::vector<std::string> candidates;  // readline takes them one by one, and sorts them.
    const auto add = [](const std::vector<std::string>& more) {
        candidates.insert(candidates.end(), more.begin(), more.end());
    };
    candidates = next.literals;
    for (const ValueKind* const kind : next.kinds) {
        const std::string_view name = kind->name;
        add(kind->choices);
        if (kind->next_words) add(kind->next_words({}));
        if (name == "MODEL") add(the_session->ModelNames());
        if (name == "FILE") rl_attempted_completion_over = 0;  // readline knows the files.
    }
    std::erase_if(candidates, [&](const std::string& word) { return !word.starts_with(text); });
    return rl_completion_matches(text, [](const char*, int) -> char* {
        if (candidates.empty()) return nullptr;
        char* const word = strdup(candidates.back().c_str());
        candidates.pop_back();
        return word;
    });
}

void SetUpReadline() {
    rl_readline_name = "sthal";
    rl_catch_signals = 0;  // The shell has handlers of its own.
    rl_catch_sigwinch = 0;
    rl_completer_word_break_characters = " \t";
    rl_basic_word_break_characters = " \t";
    rl_attempted_completion_function = CompleteWord;
    using_history();
    stifle_history(kHistoryLines);
    (void)read_history(HistoryFile().c_str());  // There is none at first.
}

}  // namespace

bool Shell::Run() {
    if (isatty(STDIN_FILENO) != 0) {
        EditLines();
        return true;
    }
    LineReader lines(STDIN_FILENO, LineInterrupted);
    bool is_good = true;
    while (!is_over_) {
        const auto line = lines.Next();
        if (!line) break;
        is_good = RunLine(*line) && is_good;
    }
    return is_good;
}

void Shell::EditLines() {
    the_shell = this;
    the_session = &session_;
    SetUpReadline();
    session_.terminal().Print("Verbs: help. Completion: the tabulator key. End: Ctrl-D.\n");
    session_.terminal().BeginEditing();
    rl_callback_handler_install(kPrompt, OnLine);
    pollfd waits[] = {{STDIN_FILENO, POLLIN, 0}, {session_.terminal().wake_fd(), POLLIN, 0}};
    while (!is_over_ && !Interrupted()) {
        const int ready = poll(waits, std::size(waits), kLookForInputMs);
        TakeSignals();
        if (ready <= 0) continue;
        if (waits[1].revents != 0) ShowPending();
        if (waits[0].revents != 0) rl_callback_read_char();
    }
    rl_callback_handler_remove();
    session_.terminal().EndEditing();
    (void)write_history(HistoryFile().c_str());
}

void Shell::TakeSignals() {
    if (const int number = TakeTerminalChange(); number == SIGWINCH) {
        rl_resize_terminal();
    } else if (number == SIGCONT) {
        // Whoever ran in between has left the terminal in a mode of its own, which readline does
        // not know of: it takes the terminal for prepared.
        rl_deprep_terminal();
        rl_prep_terminal(1);
        rl_forced_update_display();
    }
    if (!TakeLineInterrupt()) return;
    rl_point = rl_end;  // Else what stands right of it would stay on the screen.
    rl_redisplay();
    (void)std::fputs("^C\n", stdout);
    rl_free_line_state();
    rl_replace_line("", 1);
    rl_callback_sigcleanup();
    rl_on_new_line();
    rl_redisplay();
}

void Shell::ShowPending() {
    const std::string text = session_.terminal().TakePending();
    if (text.empty()) return;
    rl_clear_visible_line();
    (void)std::fwrite(text.data(), 1, text.size(), stdout);
    (void)std::fflush(stdout);
    rl_on_new_line();
    rl_redisplay();
}

void Shell::OnLine(char* line) {
    // The terminal is put back for the time of the verb: Ctrl-C is to reach it, and whatever is
    // typed meanwhile waits.
    rl_callback_handler_remove();
    if (line == nullptr) {
        (void)std::fputs("\n", stdout);
        the_shell->is_over_ = true;
        return;
    }
    const std::string text(line);
    std::free(line);
    if (text.find_first_not_of(" \t") != std::string::npos) {
        const HIST_ENTRY* const last =
                history_length > 0 ? history_get(history_base + history_length - 1) : nullptr;
        if (last == nullptr || text != last->line) add_history(text.c_str());
    }
    the_shell->session_.terminal().EndEditing();
    (void)the_shell->RunLine(text);
    (void)TakeLineInterrupt();
    if (the_shell->is_over_) return;
    the_shell->session_.terminal().BeginEditing();
    rl_callback_handler_install(kPrompt, OnLine);
}

bool Shell::RunLine(const std::string& line) {
    const auto command = ParseLine(line);
    if (!command.ok()) {
        session_.terminal().Print(command.error() + "\n");
        return false;
    }
    if (command->verb == nullptr) return true;
    const VerbResult result = RunCommand(*command, line);
    if (result.end == VerbsEnd::kInterrupted) {
        session_.terminal().Print("interrupted\n");
    } else if (result.failure) {
        session_.terminal().Print(ToText(*result.failure) + "\n");
    } else if (!result.ok() && session_.delivery()) {
        session_.terminal().Print(ToText(*session_.delivery()) + "\n");
    }
    return result.ok();
}

VerbResult Shell::RunCommand(const Command& command, const std::string& line) {
    using Where = Verb::Where;
    const Verb& verb = *command.verb;
    const std::string name = verb.name;
    if (verb.where == Where::kScenario || name == "value") {
        return VerbResult::Failed("'" + name + "' is for scenarios only");
    }
    if (verb.where == Where::kBeginning) {
        return VerbResult::Failed("'" + name +
                                  "' is chosen when the shell is started: sthal shell --" + name +
                                  " " + command.values.Get(verb.form));
    }
    if (verb.where == Where::kShell) return RunShellVerb(command);
    if (const auto checked = session_.CheckParts(verb.needs); !checked.ok()) {
        return VerbResult::Of(checked);
    }
    const std::string pause = PauseSinceLastVerb();
    VerbResult result = verb.run(session_, command.values);
    if (result.end != VerbsEnd::kInterrupted) {
        if (!pause.empty()) carried_out_.push_back(pause);
        carried_out_.push_back(line);
    }
    // A failed call is there to be seen; in a scenario it has to be expected.
    if (const auto failed = session_.TakeFailedResult()) {
        carried_out_.push_back("expect result " + std::to_string(*failed));
    }
    last_verb_frame_ = session_.phone().HeardFrames();
    return result;
}

VerbResult Shell::RunShellVerb(const Command& command) {
    if (command.verb->run != nullptr) return command.verb->run(session_, command.values);
    const std::string_view name = command.verb->name;
    if (name == "run") return RunFile(command.values.Get("FILE"));
    if (name == "save") return Save(command.values.Get("FILE"));
    is_over_ = true;
    return {};
}

VerbResult Shell::RunFile(const std::string& path) {
    const auto scenario = ReadScenario(path, {.models = session_.ModelNames()});
    if (!scenario.ok()) return VerbResult::Failed(scenario.error());
    if (scenario->StartsPhone()) {
        return VerbResult::Failed(path + " starts a phone of its own: sthal run " + path);
    }
    VerbResult result = RunScenario(*scenario, session_);
    if (result.ok()) {
        for (const Scenario::Line& step : scenario->steps) carried_out_.push_back(step.text);
    } else {
        carried_out_.push_back("# 'run " + path + "' did not come to its end");
    }
    last_verb_frame_ = session_.phone().HeardFrames();
    return result;
}

// What a scenario has to wait for where a person took their time.
std::string Shell::PauseSinceLastVerb() const {
    const double seconds = audio::Seconds(session_.phone().HeardFrames() - last_verb_frame_);
    if (seconds < kShortestPause || carried_out_.empty()) return {};
    char text[32];
    (void)std::snprintf(text, sizeof(text), "wait %.1f s", seconds);
    return text;
}

VerbResult Shell::Save(const std::string& path) {
    std::ostringstream text;
    text << "# What went wrong:\n\n";
    text << "seed " << session_.options().seed << "\nspeed " << session_.options().speed << "\n\n";
    for (const std::string& line : carried_out_) text << line << "\n";
    const std::string bytes = text.str();
    const auto written = audio::WriteFileBytes(
            path, {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    if (!written.ok()) return VerbResult::Of(written);
    session_.Say("wrote " + path + "; 'sthal run " + path + "' does it all again");
    return {};
}

}  // namespace sthal
