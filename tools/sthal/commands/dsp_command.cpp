#include "tools/sthal/commands/dsp_command.h"

#include <poll.h>
#include <sys/mount.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <iostream>
#include <string_view>
#include <utility>

#include "host/virtual_dsp/board/board.h"
#include "host/virtual_dsp/nodes/fault_text.h"
#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/phone/virtual_phone.h"
#include "tools/sthal/script/line_reader.h"
#include "tools/sthal/script/verbs.h"

namespace sthal {

namespace {

constexpr int kCannotServe = 1;
constexpr int kWrongRule = 2;

// An interrupt that comes just before a wait is noticed after this long.
constexpr int kLookAgainMs = 200;

constexpr char kDspFooter[] =
        "With --control, each line of the standard input is a verb of scenarios that needs no more "
        "than\na DSP ('sthal shell --help-verbs' lists all). It is answered by what the verb shows "
        "and one line,\n'ok' or 'error' and what is wrong; the end of the input ends the DSP. Such "
        "verbs are:\n"
        "  play wav FILE, play pattern FRAME COUNT, wait heard\n"
        "  fault RULE (without its 'on'), wait fault, faults clear\n"
        "  dsp engine NUMBER, dsp journal, dsp forget\n\n"
        "Exit status: 0 it was told to end, 1 the nodes cannot be served, 2 wrong arguments, 77 no "
        "virtual board can be had here.";

// What stands for requests that once were lines of their own; each is recognised by how it begins.
constexpr std::pair<std::string_view, std::string_view> kSuccessors[] = {
        {"play ", "'play wav FILE', then 'wait heard'"},
        {"pattern ", "'play pattern FRAME COUNT', then 'wait heard'"},
        {"fault on ", "'fault NODE OPERATION ...', without the 'on'"},
        {"await ", "'wait fault [rule COUNT] [times COUNT]'"},
        {"clear", "'faults clear'"},
        {"engine ", "'dsp engine NUMBER'"},
        {"journal", "'dsp journal COUNT', then 'dsp forget'"},
};

host::Error WrongLine(const std::string& line, const std::string& problem) {
    for (const auto& [beginning, successor] : kSuccessors) {
        if (!line.starts_with(beginning)) continue;
        return host::Error(problem + "; it is now " + std::string(successor));
    }
    return host::Error(problem);
}

// Carries out a line of the other process.
host::Result<void> Obey(const std::string& line, Session& session) {
    const auto words = SplitWords(line);
    if (!words.ok()) return host::Error(words.error());
    const auto command = ParseCommand(*words);
    if (!command.ok()) return WrongLine(line, command.error());
    const Verb* const verb = command->verb;
    if (verb == nullptr) return {};
    if (verb->run == nullptr) return host::Error("expected a verb that a DSP alone can carry out");
    if (auto checked = session.CheckParts(verb->needs); !checked.ok()) return checked;
    const VerbResult result = verb->run(session, command->values);
    if (result.ok()) return {};
    return host::Error(result.failure ? ToText(*result.failure) : "interrupted");
}

// A server that was killed leaves its mount behind, on which every call fails.
void TakeAwayDeadNodes(const std::string& directory) {
    struct statfs status {};
    while (statfs(directory.c_str(), &status) != 0 && errno == ENOTCONN) {
        if (umount2(directory.c_str(), MNT_DETACH) != 0) return;
    }
}

void WaitForInterrupt() {
    while (!Interrupted()) (void)poll(nullptr, 0, kLookAgainMs);
}

}  // namespace

DspCommand::DspCommand(CLI::App& app) : directory_(virtual_dsp::kBoardDirectory) {
    CLI::App* const dsp = app.add_subcommand(
            "dsp",
            "Serve the DSP's device nodes alone, for a HAL in another process on the board.");
    dsp->footer(kDspFooter);
    dsp->add_option("--directory", directory_, "where to mount the nodes")->capture_default_str();
    dsp->add_option("--speed", speed_, "let the microphones hear so many times faster; 0: at once")
            ->capture_default_str()
            ->check(CLI::Range(0.0, 16.0));
    dsp->add_option("--fault", faults_, "a fault rule as docs/virtual_board.md has them")
            ->allow_extra_args(false);
    dsp->add_flag("--control", control_, "take verbs from the standard input (see below)");
}

int DspCommand::Run() const {
    TakeAwayDeadNodes(directory_);
    Terminal terminal;
    Session session({.speed = speed_,
                     .is_interrupted = Interrupted,
                     .is_shown = [](const Fact&) { return false; },
                     .boot =
                             [this](RunRecord& record) {
                                 return BootVirtualDsp(directory_, speed_, record);
                             }},
                    terminal);
    if (const auto started = session.StartPhone(); !started.ok()) {
        std::cerr << "sthal dsp: " << started.error() << '\n';
        return kCannotServe;
    }
    for (const std::string& text : faults_) {
        const auto rule = virtual_dsp::ParseFault(text);
        if (!rule.ok()) {
            std::cerr << "sthal dsp: --fault " << text << ": " << rule.error() << '\n';
            return kWrongRule;
        }
        session.AddFault(*rule);
    }
    terminal.Print("ready: process " + std::to_string(getpid()) + " serves " + directory_ + "\n");
    if (!control_) {
        WaitForInterrupt();
    } else {
        LineReader lines(STDIN_FILENO, Interrupted);
        while (const auto line = lines.Next()) {
            const auto obeyed = Obey(*line, session);
            terminal.Print(obeyed.ok() ? "ok\n" : "error " + obeyed.error() + "\n");
        }
    }
    (void)session.End({}, {});
    return 0;
}

}  // namespace sthal
