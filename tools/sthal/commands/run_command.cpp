#include "tools/sthal/commands/run_command.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <limits>
#include <sstream>

#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/script/scenario.h"

namespace sthal {

namespace {

constexpr int kHeld = 0;
constexpr int kNotHeld = 1;
constexpr int kWrongFile = 2;
constexpr int kInterrupted = 130;

constexpr char kFooter[] =
        "Exit status: 0 all expectations held; 1 one did not, the last line says which and what "
        "was\nseen; 2 a wrong scenario or file; 77 no virtual board can be had here; 130 "
        "interrupted.\n\n"
        "'sthal shell --help-verbs' lists the verbs; docs/scenarios.md explains them.";

}  // namespace

RunCommand::RunCommand(CLI::App& app) {
    CLI::App* const run = app.add_subcommand(
            "run", "Carry out a scenario on the virtual board: a bug report that is one file.");
    run->footer(kFooter);
    run->add_option("FILE", file_, "the scenario")->required();
    run->add_option("--speed", speed_, "times faster than real time, instead of the scenario's")
            ->check(CLI::Range(0.1, 16.0));
    run->add_option("--seed", seed_, "of noise and faults, instead of the scenario's");
    AddOutputOption(*run, output_folder_);
    AddRunFileOptions(*run, files_);
    run->callback([this] { is_chosen_ = true; });
}

int RunCommand::Run() const {
    const auto scenario = ReadScenario(file_);
    if (!scenario) {
        std::cerr << "sthal run: " << scenario.error << '\n';
        return kWrongFile;
    }
    SessionOptions options;
    options.speed = speed_.value_or(scenario->speed.value_or(1.0));
    options.seed = seed_.value_or(scenario->seed.value_or(1));
    options.output_folder = output_folder_;
    options.is_interrupted = Interrupted;
    if (files_.AreWanted()) options.title = "sthal run " + file_;
    Terminal terminal;
    const auto session = Session::Begin(options, terminal);
    if (!session) {
        std::cerr << "sthal run: " << session.error << '\n';
        return kNotHeld;
    }
    Outcome outcome = RunScenario(*scenario, **session.value);
    const auto broken = (*session.value)->phone().BrokenRules();
    if (outcome.ok() && !broken.empty()) outcome = Outcome::Failed(broken.front());
    const std::string verdict = VerdictOf(outcome);
    const std::string problem = (*session.value)->End(verdict, files_);
    std::ostringstream last_lines;
    if (!problem.empty()) last_lines << "sthal run: " << problem << '\n';
    last_lines << verdict << " (seed " << options.seed << ", speed " << options.speed << ")\n";
    terminal.Print(last_lines.str());
    if (outcome.kind == Outcome::Kind::kInterrupted) return kInterrupted;
    return outcome.ok() && problem.empty() ? kHeld : kNotHeld;
}

std::string RunCommand::VerdictOf(const Outcome& outcome) const {
    switch (outcome.kind) {
        case Outcome::Kind::kDone:
            return "OK: " + file_ + " held";
        case Outcome::Kind::kFailed:
            return "FAILED: " + outcome.text;
        case Outcome::Kind::kInterrupted:
            break;
    }
    return "interrupted: everything was stopped and taken down";
}

}  // namespace sthal
