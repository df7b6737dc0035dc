// sthal, the command-line tool: runs the HAL on the virtual board.
#include <android-base/strings.h>

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

constexpr int kUsage = 2;

// What is wrong with the command's name, or nothing. CLI11 would say that a subcommand is required.
std::string CommandProblem(const CLI::App& app, int argc, char** argv) {
    if (argc < 2 || argv[1][0] == '-') return {};
    std::vector<std::string> names;
    for (const CLI::App* const command :
         app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(command->get_name());
    }
    if (std::ranges::find(names, argv[1]) != names.end()) return {};
    return std::string("sthal: there is no command '") + argv[1] + "'; the commands are " +
           android::base::Join(names, ", ") + DidYouMean(argv[1], names);
}

int Run(int argc, char** argv) {
    CLI::App app{
            "sthal runs the sound trigger HAL on a virtual board: the same device paths as on a "
            "phone, with a virtual DSP behind them.",
            "sthal"};
    app.require_subcommand(1);
    DemoCommand demo(app);
    TuningCommand tuning(app);
    RunCommand run(app);
    ShellCommand shell(app);
    DspCommand dsp(app);
    if (const std::string problem = CommandProblem(app, argc, argv); !problem.empty()) {
        std::cerr << problem << '\n';
        return kUsage;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsage;
    }
    const auto is_chosen = [&](const char* command) { return app.got_subcommand(command); };
    if (is_chosen("tuning")) return tuning.Run();
    if (is_chosen("shell") && shell.WantsHelpOnly()) return shell.Run();
    if (const auto status = virtual_dsp::EnterBoard(argc, argv)) return *status;
    CatchInterrupts();
    if (is_chosen("run")) return run.Run();
    if (is_chosen("shell")) return shell.Run();
    if (is_chosen("dsp")) return dsp.Run();
    return demo.Run();
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
