#include "tools/sthal/commands/tuning_command.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <string_view>
#include <vector>

#include "audio/hal/utils/tamberlo/tamberlo_config_file.h"
#include "audio/hal/utils/tamberlo/tamberlo_tuning_text.h"
#include "tools/audio/file_bytes.h"

namespace sthal {

namespace {

namespace tamberlo = ::vendor::quarno::brindlecove::audio::hal::utils::tamberlo;

constexpr int kWrongTuningFile = 2;

int Complain(const std::string& text) {
    std::cerr << "sthal tuning: " << text << '\n';
    return kWrongTuningFile;
}

}  // namespace

TuningCommand::TuningCommand(CLI::App& app) {
    CLI::App* const tuning = app.add_subcommand(
            "tuning", "Print and make the tuning files that the DSP gets its gains from.");
    tuning->require_subcommand(1);
    CLI::App* const show = tuning->add_subcommand(
            "show", "Print a tuning file, or say what is wrong with it and where.");
    show->add_option("FILE", input_, "the tuning file")->required();
    show->callback([this] { show_ = true; });
    CLI::App* const build =
            tuning->add_subcommand("build", "Make a tuning file of a text as `show` prints it.");
    build->add_option("TEXT", input_, "the text; docs/tuning_file.md has its rules")->required();
    build->add_option("FILE", output_, "the tuning file to write")->required();
    build->callback([this] { build_ = true; });
}

int TuningCommand::Run() const {
    return show_ ? Show() : Build();
}

int TuningCommand::Show() const {
    const auto bytes = audio::ReadFileBytes(input_);
    if (!bytes.ok()) return Complain(bytes.error());
    const auto file = tamberlo::ReadTuningFile(*bytes);
    const auto version = file.ok() ? tamberlo::kTuningFileVersion : file.error().version;
    if (version) {
        std::cout << "# " << input_ << ": version " << *version << ", " << bytes->size()
                  << " bytes\n";
    }
    if (!file.ok()) {
        return Complain(input_ + ": byte " + std::to_string(file.error().offset) + ": " +
                        file.error().what);
    }
    std::cout << tamberlo::TuningFileToText(*file) << std::flush;
    const std::vector<std::string> problems = tamberlo::SoundTriggerProblems(*file);
    for (const std::string& problem : problems) {
        (void)Complain(input_ + ": the DSP gets nothing from here on: " + problem);
    }
    return problems.empty() ? 0 : kWrongTuningFile;
}

int TuningCommand::Build() const {
    const auto bytes = audio::ReadFileBytes(input_);
    if (!bytes.ok()) return Complain(bytes.error());
    const std::string_view text(reinterpret_cast<const char*>(bytes->data()), bytes->size());
    const auto file = tamberlo::TuningFileFromText(text);
    if (!file.ok()) {
        return Complain(input_ + ":" + std::to_string(file.error().line) + ": " +
                        file.error().what);
    }
    const auto image = tamberlo::WriteTuningFile(*file);
    if (!image.ok()) return Complain(input_ + ": " + image.error());
    const auto written = audio::WriteFileBytes(output_, *image);
    return written.ok() ? 0 : Complain(written.error());
}

}  // namespace sthal
