// sthal, the command-line tool: runs the HAL on the virtual board.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "host/virtual_dsp/board/enter_board.h"
#include "tools/sthal/commands/demo.h"
#include "tools/sthal/commands/dsp_command.h"
#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/commands/run_command.h"
#include "tools/sthal/commands/shell_command.h"
#include "tools/sthal/commands/tuning_command.h"
#include "tools/sthal/script/grammar.h"

namespace sthal {

namespace {

constexpr char kDemoHelp[] =
        "Follow one detection from the microphone through the DSP and the HAL to the framework's "
        "callback and the captured audio, with every step explained.";

constexpr char kDemoFooter[] =
        "Exit status: 0 the event came at the right place and the capture is what the microphone "
        "heard;\n1 it did not; 2 wrong arguments or files; 3 there was no hotword and no event "
        "came;"
        "\n77 no virtual board can be had here; 130 interrupted.\n\n"
        "Examples:\n"
        "  sthal demo\n"
        "  sthal demo --speed 4 --dump\n"
        "  sthal demo --mic room.wav --hotword ok.wav\n"
        "  sthal demo --restart --report run.html --trace run.json";

// Adds the command; `story` becomes a name of a story, which its flag chooses.
CLI::App* AddDemo(CLI::App& app, DemoOptions& options) {
    using Story = DemoOptions::Story;
    CLI::App* const demo = app.add_subcommand("demo", kDemoHelp);
    demo->footer(kDemoFooter);
    auto* const mic = demo->add_option("--mic", options.microphone_file,
                                       "play this WAV instead of synthesised speech");
    auto* const hotword =
            demo->add_option("--hotword", options.hotword_file,
                             "make the model of this WAV: the hotword as it sounds in "
                             "the --mic file, cut out of it");
    mic->needs(hotword)->check(CLI::ExistingFile);
    hotword->needs(mic)->check(CLI::ExistingFile);
    demo->add_option("--phrase", options.phrase, "the hotword that is spoken")
            ->capture_default_str()
            ->excludes(mic);
    demo->add_flag("--no-hotword", options.without_hotword, "nobody says it: no event may come")
            ->excludes(mic);
    demo->add_option("--threshold", options.threshold,
                     "correlation from which on the hotword counts as heard (default: 0.7; for "
                     "music 0.9)")
            ->check(CLI::Range(0.1, 1.0));
    demo->add_option("--speed", options.speed, "play this many times faster than real time")
            ->capture_default_str()
            ->check(CLI::Range(0.1, 16.0));
    demo->add_option("--capture-seconds", options.capture_seconds,
                     "read this much audio (default: to the end of the recording)")
            ->check(CLI::Range(0.1, 600.0));
    auto* const channels = demo->add_option("--channels", options.channels,
                                            "channels of the capture stream, 1 or 2; music has one")
                                   ->capture_default_str()
                                   ->check(CLI::Range(1, 2));
    AddOutputOption(*demo, options.output_folder);
    AddRunFileOptions(*demo, options.files);
    demo->add_flag("--dump", options.dump, "print the HAL's dump at each stage");
    demo->add_flag("-v,--verbose", options.verbose, "print all log lines and all DSP details");

    auto* const stories = demo->add_option_group("stories", "instead of a plain hotword");
    const auto add_story = [&](const char* flag, Story story, const char* help) {
        return stories->add_flag_callback(
                flag, [&options, story] { options.story = story; }, help);
    };
    add_story("--zero-latency", Story::kZeroLatency,
              "capture through internal recognition, without any model");
    add_story("--ambient", Story::kAmbient,
              "detect music and capture it as the ambient engine does")
            ->excludes(channels);
    add_story("--restart", Story::kRestart, "the DSP crashes in the middle of recognition");
    add_story("--dock", Story::kDock, "dock, music on the loudspeaker, a charger with a fan");
    stories->require_option(0, 1);
    return demo;
}

// What is wrong with the command's name, or nothing. CLI11 would say that a subcommand is required.
std::string CommandProblem(const CLI::App& app, int argc, char** argv) {
    if (argc < 2 || argv[1][0] == '-') return {};
    std::vector<std::string> names;
    std::string list;
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
        list += (list.empty() ? "" : ", ") + names.back();
    }
    if (std::ranges::find(names, argv[1]) != names.end()) return {};
    const auto nearest = NearestMatch(argv[1], names);
    return std::string("sthal: there is no command '") + argv[1] + "'; the commands are " + list +
           (nearest ? "; did you mean '" + *nearest + "'?" : "");
}

int Run(int argc, char** argv) {
    CLI::App app{
            "sthal runs the sound trigger HAL on a virtual board: the same device paths as on a "
            "phone, with a virtual DSP behind them.",
            "sthal"};
    app.require_subcommand(1);
    DemoOptions demo_options;
    CLI::App* const demo = AddDemo(app, demo_options);
    TuningCommand tuning(app);
    RunCommand run(app);
    ShellCommand shell(app);
    DspCommand dsp(app);
    if (const std::string problem = CommandProblem(app, argc, argv); !problem.empty()) {
        std::cerr << problem << '\n';
        return static_cast<int>(DemoStatus::kUsage);
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(DemoStatus::kUsage);
    }
    if (tuning.IsChosen()) return tuning.Run();
    if (shell.IsChosen() && shell.WantsHelpOnly()) return shell.Run();
    if (!demo->parsed() && !run.IsChosen() && !shell.IsChosen() && !dsp.IsChosen()) {
        return static_cast<int>(DemoStatus::kUsage);
    }
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
    CatchInterrupts();
    if (run.IsChosen()) return run.Run();
    if (shell.IsChosen()) return shell.Run();
    if (dsp.IsChosen()) return dsp.Run();
    return static_cast<int>(RunDemo(demo_options));
}

}  // namespace

}  // namespace sthal

int main(int argc, char** argv) {
    try {
        return sthal::Run(argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "sthal: " << error.what() << '\n';
        return 1;
    }
}
