#pragma once

#include <string>
#include <vector>

#include "tools/sthal/output/run_files.h"
#include "tools/sthal/script/grammar.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace sthal {

struct DemoStory;

/**
 * `sthal demo`: carries out one of the stories in scenarios/demo/, which are part of the program.
 * Its options set the story's values.
 */
class DemoCommand {
  public:
    explicit DemoCommand(CLI::App& app);

    // To be called on the board, with interrupts caught. The exit status, as its help tells it.
    int Run() const;

  private:
    // An option that sets a value of the story: to `text`, or else to what was given.
    struct ValueOption {
        const CLI::Option* option;
        const char* value;
        const char* text = nullptr;
    };

    void AddValues(CLI::App& demo);
    void AddStories(CLI::App& demo);
    // Those that were given.
    NamedTexts Values() const;

    const DemoStory* story_;
    std::vector<ValueOption> values_;
    double speed_ = 1.0;
    std::string output_folder_ = "demo-output";
    RunFiles files_;
};

}  // namespace sthal
