#include "tools/sthal/commands/run_command.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <sstream>

#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/commands/run_options.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/script/scenario.h"

namespace sthal {

namespace {

constexpr int kNotHeld = 1;
constexpr int kWrongScenario = 2;

constexpr char kRunFooter[] =
        "Exit status: 0 all expectations held; 1 one did not, the last line says which and what "
        "was\nseen, or the HAL broke a rule of the framework, or a file could not be written;\n2 a "
        "wrong scenario or file; 3 there was nothing to detect, and no event came; "
        "77 no\nvirtual board can be had here; 130 interrupted.\n\n"
        "'sthal shell --help-verbs' lists the verbs; docs/scenarios.md explains them.";

}  // namespace

RunCommand::RunCommand(CLI::App& app) {
    CLI::App* const run = app.add_subcommand(
            "run", "Carry out a scenario on the virtual board: a bug report that is one file.");
    run->footer(kRunFooter);
    run->add_option("FILE", file_, "the scenario")->required();
    run->add_option("--speed", speed_, "times faster than real time, instead of the scenario's")
            ->check(CLI::Range(0.1, 16.0));
    run->add_option("--seed", seed_, "of noise and faults, instead of the scenario's");
    run->add_option("--set", values_, "a value of the scenario's, instead of its own: NAME=TEXT")
            ->allow_extra_args(false)
            ->check([](const std::string& text) {
                return text.find('=') == std::string::npos ? "expected NAME=TEXT" : std::string();
            });
    AddOutputOption(*run, output_folder_);
    AddRunFileOptions(*run, files_);
}

int RunCommand::Run() const {
    NamedTexts values;
    for (const std::string& value : values_) {
        const size_t end = value.find('=');
        values[value.substr(0, end)] = value.substr(end + 1);
    }
    const auto scenario = ReadScenario(file_, {.values = values});
    if (!scenario.ok()) {
        std::cerr << "sthal run: " << scenario.error() << '\n';
        return kWrongScenario;
    }
    const double speed = speed_.value_or(scenario->speed.value_or(1.0));
    const uint32_t seed = seed_.value_or(scenario->seed.value_or(1));
    Terminal terminal;
    Session session({.speed = speed,
                     .seed = seed,
                     .output_folder = output_folder_,
                     .title = files_.AreWanted() ? "sthal run " + file_ : "",
                     .is_interrupted = Interrupted},
                    terminal);
    if (!scenario->StartsPhone()) {
        if (const auto started = session.StartPhone(); !started.ok()) {
            std::cerr << "sthal run: " << started.error() << '\n';
            return kNotHeld;
        }
    }
    const Verdict verdict = session.VerdictOn(RunScenario(*scenario, session), file_);
    const auto ended = session.End(verdict, files_);
    std::ostringstream last_lines;
    if (!ended.ok()) last_lines << "sthal run: " << ended.error() << '\n';
    last_lines << VerdictText(verdict) << " (seed " << seed << ", speed " << speed << ")\n";
    terminal.Print(last_lines.str());
    return ExitStatus(verdict, ended.ok());
}

}  // namespace sthal
