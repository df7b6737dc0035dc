#include "tools/sthal/commands/shell_command.h"

#include <CLI/CLI.hpp>

#include <iostream>

#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/commands/run_options.h"
#include "tools/sthal/commands/shell.h"
#include "tools/sthal/script/verbs.h"

namespace sthal {

namespace {

constexpr int kFailed = 1;
constexpr int kInterrupted = 130;

constexpr char kShellFooter[] =
        "Events appear as they arrive. The same verbs make a scenario for 'sthal run'; 'save FILE' "
        "writes\none of the session. docs/scenarios.md explains them.\n\n"
        "Exit status: 0 the session was ended; 1 a line that did not come from a terminal was not "
        "carried\nout, the HAL broke a rule of the framework's, or a file could not be written; 2 "
        "wrong arguments;\n77 no virtual board can be had here; 130 interrupted.";

}  // namespace

ShellCommand::ShellCommand(CLI::App& app) {
    CLI::App* const shell = app.add_subcommand(
            "shell",
            "Load, start, speak, break and look, one verb at a time, on the virtual board.");
    shell->footer(kShellFooter);
    shell->add_flag("--help-verbs", wants_verbs_, "list the verbs of the shell and of scenarios");
    shell->add_option("--speed", speed_, "times faster than real time")
            ->capture_default_str()
            ->check(CLI::Range(0.1, 16.0));
    shell->add_option("--seed", seed_, "of noise and faults")->capture_default_str();
    AddOutputOption(*shell, output_folder_);
    AddRunFileOptions(*shell, files_);
}

int ShellCommand::Run() const {
    if (wants_verbs_) {
        std::cout << *VerbHelp();
        return 0;
    }
    CatchSignalsOfTerminal();
    Terminal terminal;
    Session session({.speed = speed_,
                     .seed = seed_,
                     .output_folder = output_folder_,
                     .title = files_.AreWanted() ? "sthal shell" : "",
                     .is_interrupted = LineInterrupted},
                    terminal);
    if (const auto started = session.StartPhone(); !started.ok()) {
        std::cerr << "sthal shell: " << started.error() << '\n';
        return kFailed;
    }
    const bool is_good = Shell(session).Run();
    Verdict verdict = session.VerdictOn({}, "sthal shell");
    if (verdict.kind == Verdict::Kind::kHeld) {
        verdict.kind = is_good ? Verdict::Kind::kEnded : Verdict::Kind::kFailed;
        if (!is_good) verdict.failure = Failure{.expected = "a line was not carried out"};
    }
    const auto ended = session.End(verdict, files_);
    if (!ended.ok()) std::cerr << "sthal shell: " << ended.error() << '\n';
    return LineInterrupted() ? kInterrupted : ExitStatus(verdict, ended.ok());
}

}  // namespace sthal
