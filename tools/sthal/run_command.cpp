#include "tools/sthal/run_command.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <limits>
#include <sstream>

#include "tools/sthal/interrupt.h"
#include "tools/sthal/scenario.h"

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
    run->add_option("--out", output_folder_, "folder for the WAV files")->capture_default_str();
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
    Terminal terminal;
    Outcome outcome;
    {
        const auto session = Session::Begin(options, terminal);
        if (!session) {
            std::cerr << "sthal run: " << session.error << '\n';
            return kNotHeld;
        }
        outcome = RunScenario(*scenario, **session.value);
    }
    std::ostringstream last_line;
    int status = kHeld;
    switch (outcome.kind) {
        case Outcome::Kind::kDone:
            last_line << "OK: " << file_ << " held";
            break;
        case Outcome::Kind::kFailed:
            last_line << "FAILED: " << outcome.text;
            status = kNotHeld;
            break;
        case Outcome::Kind::kInterrupted:
            last_line << "interrupted: everything was stopped and taken down";
            status = kInterrupted;
            break;
    }
    last_line << " (seed " << options.seed << ", speed " << options.speed << ")\n";
    terminal.Print(last_line.str());
    return status;
}

}  // namespace sthal
