#include "tools/sthal/commands/demo.h"

#include <CLI/CLI.hpp>

#include <iostream>

#include "tools/sthal/commands/interrupt.h"
#include "tools/sthal/commands/run_options.h"
#include "tools/sthal/output/finding_texts.h"
#include "tools/sthal/script/scenario.h"

namespace sthal {

// What is done with the phone.
struct DemoStory {
    const char* flag;  // Null of the one that is shown without any.
    const char* help;
    const char* file;  // Of the scenario.
    const char* text;
    const char* value;         // That is on in it; null: none.
    const char* subject;       // Of the run's files, after the phrase where that is named.
    bool names_phrase = true;  // The subject does.
    bool speaks_phrase = true;
};

namespace {

constexpr int kWrongFiles = 2;

constexpr char kPhrase[] = "hello brindle cove";

constexpr char kHelp[] =
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

// String literals that CMake makes of the files in scenarios/demo/.
constexpr char kHotwordText[] =
#include "hotword.inc"
        ;
constexpr char kAmbientText[] =
#include "ambient.inc"
        ;
constexpr char kZeroLatencyText[] =
#include "zero_latency.inc"
        ;

constexpr char kHotwordFile[] = "scenarios/demo/hotword.sthal";

constexpr DemoStory kStories[] = {
        {.flag = nullptr,
         .help = nullptr,
         .file = kHotwordFile,
         .text = kHotwordText,
         .value = nullptr,
         .subject = ""},
        {.flag = "--zero-latency",
         .help = "capture through internal recognition, without any model",
         .file = "scenarios/demo/zero_latency.sthal",
         .text = kZeroLatencyText,
         .value = nullptr,
         .subject = "capture without a detection",
         .names_phrase = false},
        {.flag = "--ambient",
         .help = "detect music and capture it as the ambient engine does",
         .file = "scenarios/demo/ambient.sthal",
         .text = kAmbientText,
         .value = nullptr,
         .subject = "music",
         .names_phrase = false,
         .speaks_phrase = false},
        {.flag = "--restart",
         .help = "the DSP crashes in the middle of recognition",
         .file = kHotwordFile,
         .text = kHotwordText,
         .value = "restart",
         .subject = ", the DSP crashes"},
        {.flag = "--dock",
         .help = "dock, music on the loudspeaker, a charger with a fan",
         .file = kHotwordFile,
         .text = kHotwordText,
         .value = "dock",
         .subject = " on the dock"},
};

std::string TitleOf(const DemoStory& story, const NamedTexts& values) {
    const auto get = [&](const char* name, const std::string& otherwise) {
        const auto found = values.find(name);
        return found == values.end() ? otherwise : found->second;
    };
    std::string title = "sthal demo: ";
    if (story.names_phrase) title += '"' + get("phrase", kPhrase) + '"';
    title += story.subject;
    const std::string mic = get("mic", "");
    return mic.empty() ? title : title + " in " + mic;
}

}  // namespace

DemoCommand::DemoCommand(CLI::App& app) : story_(kStories) {
    CLI::App* const demo = app.add_subcommand("demo", kHelp);
    demo->footer(kDemoFooter);
    AddValues(*demo);
    AddStories(*demo);
}

void DemoCommand::AddValues(CLI::App& demo) {
    const auto add = [&](const char* name, const char* value, const std::string& help) {
        CLI::Option* const option = demo.add_option(name, help)->type_name("TEXT");
        values_.push_back({option, value});
        return option;
    };
    const auto add_flag = [&](const char* name, const char* value, const char* text,
                              const std::string& help) {
        CLI::Option* const flag = demo.add_flag(name, help);
        values_.push_back({flag, value, text});
        return flag;
    };
    CLI::Option* const mic = add("--mic", "mic", "play this WAV instead of synthesised speech");
    CLI::Option* const hotword = add("--hotword", "hotword",
                                     "make the model of this WAV: the hotword as it sounds in the "
                                     "--mic file, cut out of it");
    mic->needs(hotword)->check(CLI::ExistingFile);
    hotword->needs(mic)->check(CLI::ExistingFile);
    add("--phrase", "phrase", "the hotword that is spoken")->default_str(kPhrase)->excludes(mic);
    add_flag("--no-hotword", "spoken", "off", "nobody says it: no event may come")->excludes(mic);
    add("--threshold", "threshold",
        "correlation from which on the hotword counts as heard (default: 0.7; for music 0.9)")
            ->type_name("FLOAT")
            ->check(CLI::Range(0.1, 1.0));
    demo.add_option("--speed", speed_, "play this many times faster than real time")
            ->capture_default_str()
            ->check(CLI::Range(0.1, 16.0));
    add("--capture-seconds", "seconds",
        "read this much audio (default: to the end of the recording)")
            ->type_name("FLOAT")
            ->check(CLI::Range(0.1, 600.0));
    add("--channels", "channels", "channels of the capture stream, 1 or 2; music has one")
            ->type_name("INT")
            ->default_str("2")
            ->check(CLI::Range(1, 2));
    AddOutputOption(demo, output_folder_);
    AddRunFileOptions(demo, files_);
    add_flag("--dump", "dump", "on", "print the HAL's dump at each stage");
    add_flag("-v,--verbose", "verbose", "on", "print all log lines and all DSP details");
}

void DemoCommand::AddStories(CLI::App& demo) {
    auto* const stories = demo.add_option_group("stories", "instead of a plain hotword");
    for (const DemoStory& story : kStories) {
        if (story.flag == nullptr) continue;
        CLI::Option* const flag = stories->add_flag_callback(
                story.flag, [this, &story] { story_ = &story; }, story.help);
        if (!story.speaks_phrase) flag->excludes(demo.get_option("--channels"));
    }
    stories->require_option(0, 1);
}

NamedTexts DemoCommand::Values() const {
    NamedTexts values;
    for (const auto& [option, value, text] : values_) {
        if (option->count() == 0) continue;
        values[value] = text != nullptr ? text : option->results().front();
    }
    if (story_->value != nullptr) values[story_->value] = "on";
    if (!story_->speaks_phrase) values.erase("phrase");
    return values;
}

int DemoCommand::Run() const {
    const NamedTexts values = Values();
    const auto scenario = ParseScenario(story_->text, story_->file, {.values = values});
    const auto checked = scenario.ok() ? CheckFiles(*scenario)
                                       : host::Result<void>(host::Error(scenario.error()));
    if (!checked.ok()) {
        std::cerr << "sthal demo: " << checked.error() << '\n';
        return kWrongFiles;
    }
    Terminal terminal;
    // The story's headings say what its verbs would.
    const auto is_shown = [](const Fact& fact) {
        const auto* const step = std::get_if<StoryStep>(&fact);
        return step == nullptr || step->kind != StoryStep::Kind::kVerb;
    };
    Session session({.speed = speed_,
                     .output_folder = output_folder_,
                     .title = files_.AreWanted() ? TitleOf(*story_, values) : "",
                     .is_interrupted = Interrupted,
                     .is_shown = is_shown},
                    terminal);
    const Verdict verdict = session.VerdictOn(RunScenario(*scenario, session), story_->file);
    const auto written = session.End(verdict, files_);
    session.Show(VerdictText(verdict));
    if (!written.ok()) session.Say(written.error());
    return ExitStatus(verdict, written.ok());
}

}  // namespace sthal
