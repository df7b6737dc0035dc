#include "tools/sthal/commands/shell.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
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
#include "tools/sthal/script/completion.h"
#include "tools/sthal/script/scenario.h"

namespace sthal {

namespace {

constexpr char kPrompt[] = "sthal> ";
constexpr int kHistoryLines = 1000;
constexpr double kShortestPause = 0.3;  // In seconds: below it nobody has waited for anything.

// A signal that comes just before the wait for a key would otherwise go unseen until the next one.
constexpr int kLookAgainMs = 200;

// Set by signal handlers. The first one is asked by other threads, too.
std::atomic<int> interrupt_count{0};
std::atomic<int> terminal_changed{0};
static_assert(std::atomic<int>::is_always_lock_free);

extern "C" void OnShellSignal(int number) {
    if (number == SIGINT) {
        interrupt_count = 1;
    } else {
        terminal_changed = number;
    }
}

// readline's callbacks carry no context.
Shell* the_shell = nullptr;
const Session* the_session = nullptr;

std::string HistoryFile() {
    const char* const home = std::getenv("HOME");
    return home == nullptr ? "" : std::string(home) + "/.sthal_history";
}

// readline takes the list and its words over, and frees them.
char** MatchesOf(const std::vector<std::string>& words, const std::string& begin) {
    static std::vector<std::string> candidates;
    candidates = words;
    static size_t next = 0;
    next = 0;
    return rl_completion_matches(begin.c_str(), [](const char*, int) -> char* {
        return next < candidates.size() ? strdup(candidates[next++].c_str()) : nullptr;
    });
}

char** CompleteWord(const char* text, int start, int /*end*/) {
    const std::string before(rl_line_buffer, static_cast<size_t>(start));
    const Completion completion = Complete(before, text, *the_session);
    rl_attempted_completion_over = completion.wants_file ? 0 : 1;
    if (completion.words.empty()) return nullptr;
    return MatchesOf(completion.words, text);
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

void Shell::CatchInterrupts() {
    struct sigaction action {};
    action.sa_handler = OnShellSignal;
    action.sa_flags = SA_RESTART;
    for (const int number : {SIGINT, SIGWINCH, SIGCONT}) {
        (void)sigaction(number, &action, nullptr);
    }
}

bool Shell::WasInterrupted() {
    return interrupt_count != 0 || Interrupted();
}

bool Shell::Run() {
    if (isatty(STDIN_FILENO) == 0) return RunLines();
    EditLines();
    return true;
}

bool Shell::RunLines() {
    bool is_good = true;
    std::string line;
    while (!is_over_ && !WasInterrupted() && NextLine(line)) is_good = Carry(line) && is_good;
    return is_good;
}

// The next line of standard input, which is no terminal; false at its end and on an interrupt. Not
// by std::getline(), which a signal does not end.
bool Shell::NextLine(std::string& line) {
    size_t end = 0;
    while ((end = unread_.find('\n')) == std::string::npos) {
        pollfd input{STDIN_FILENO, POLLIN, 0};
        const int ready = poll(&input, 1, kLookAgainMs);
        if (WasInterrupted()) return false;
        if (ready <= 0) continue;
        char bytes[4096];
        const ssize_t count = read(STDIN_FILENO, bytes, sizeof(bytes));
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count <= 0) break;
        unread_.append(bytes, static_cast<size_t>(count));
    }
    if (unread_.empty()) return false;
    line = unread_.substr(0, end);
    unread_.erase(0, end == std::string::npos ? end : end + 1);
    return true;
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
        const int ready = poll(waits, std::size(waits), kLookAgainMs);
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
    if (const int number = terminal_changed.exchange(0); number == SIGWINCH) {
        rl_resize_terminal();
    } else if (number == SIGCONT) {
        // Whoever ran in between has left the terminal in a mode of its own, which readline does
        // not know of: it takes the terminal for prepared.
        rl_deprep_terminal();
        rl_prep_terminal(1);
        rl_forced_update_display();
    }
    if (interrupt_count.exchange(0) == 0) return;
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
    (void)the_shell->Carry(text);
    interrupt_count = 0;
    if (the_shell->is_over_) return;
    the_shell->session_.terminal().BeginEditing();
    rl_callback_handler_install(kPrompt, OnLine);
}

bool Shell::Carry(const std::string& line) {
    const auto command = ParseCommand(line);
    if (!command) {
        session_.terminal().Print(command.error + "\n");
        return false;
    }
    if (command->verb == nullptr) return true;
    Outcome outcome;
    if (command->verb->where == Verb::Where::kBeginning) {
        outcome = Outcome::Failed(std::string("'") + command->verb->name +
                                  "' is chosen when the shell is started: sthal shell --" +
                                  command->verb->name + " " + command->values[0]);
    } else if (command->verb->where == Verb::Where::kShell) {
        outcome = CarryShellVerb(command->verb->name, command->values);
    } else {
        const std::string pause = PauseSinceLastVerb();
        outcome = command->verb->run(session_, command->values);
        if (outcome.kind != Outcome::Kind::kInterrupted) {
            if (!pause.empty()) carried_out_.push_back(pause);
            carried_out_.push_back(line);
        }
        // A failed call is there to be seen; in a scenario it has to be expected.
        if (const auto result = session_.TakeFailedResult()) {
            carried_out_.push_back("expect result " + std::to_string(*result));
        }
        last_verb_frame_ = session_.phone().board().microphone().Position();
    }
    if (outcome.kind == Outcome::Kind::kInterrupted) outcome.text = "interrupted";
    if (!outcome.ok()) session_.terminal().Print(outcome.text + "\n");
    return outcome.ok();
}

Outcome Shell::CarryShellVerb(const std::string& name, const Values& values) {
    if (name == "help") {
        const std::string text = VerbHelp(values.Get("VERB"));
        if (text.empty()) return Outcome::Failed(UnknownVerb(values.Get("VERB")));
        session_.terminal().Print(text);
    }
    if (name == "models") return ShowModels();
    if (name == "save") return Save(values[0]);
    if (name == "quit") is_over_ = true;
    if (name != "run") return {};
    std::vector<std::string> models;
    for (const auto& [model, ignored] : session_.models()) models.push_back(model);
    const auto scenario = ReadScenario(values[0], models);
    if (!scenario) return Outcome::Failed(scenario.error);
    Outcome outcome = RunScenario(*scenario, session_);
    if (outcome.ok()) {
        for (const Scenario::Step& step : scenario->steps) carried_out_.push_back(step.text);
    } else {
        carried_out_.push_back("# 'run " + values[0] + "' did not come to its end");
    }
    last_verb_frame_ = session_.phone().board().microphone().Position();
    return outcome;
}

// What a scenario has to wait for where a person took their time.
std::string Shell::PauseSinceLastVerb() const {
    const uint64_t now = session_.phone().board().microphone().Position();
    const double seconds =
            static_cast<double>(now - last_verb_frame_) / static_cast<double>(audio::kSampleRateHz);
    if (seconds < kShortestPause || carried_out_.empty()) return {};
    char text[32];
    (void)std::snprintf(text, sizeof(text), "wait %.1f s", seconds);
    return text;
}

Outcome Shell::ShowModels() {
    std::ostringstream text;
    for (const auto& [name, model] : session_.models()) {
        text << name << ": model " << model.handle << ", "
             << (model.is_generic ? "generic" : "keyphrase") << ", "
             << audio::Seconds(model.pattern.frames()) << " s of audio\n";
    }
    session_.Show(session_.models().empty() ? "none is loaded" : text.str());
    return {};
}

Outcome Shell::Save(const std::string& path) {
    std::ostringstream text;
    text << "# What went wrong:\n\n";
    text << "seed " << session_.options().seed << "\nspeed " << session_.options().speed << "\n\n";
    for (const std::string& line : carried_out_) text << line << "\n";
    const std::string bytes = text.str();
    const std::string problem = audio::WriteFileBytes(
            path, {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    if (!problem.empty()) return Outcome::Failed(problem);
    session_.Say("wrote " + path + "; 'sthal run " + path + "' does it all again");
    return {};
}

}  // namespace sthal
