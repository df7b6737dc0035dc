#include "tools/sthal/script/scenario.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>
#include <utility>

#include "tools/audio/file_bytes.h"

namespace sthal {

namespace {

using Where = Verb::Where;

bool Is(const Command& command, std::string_view verb) {
    return command.verb->name == verb;
}

// Makes a scenario of lines. What fails says what is wrong with the line.
class Parser {
  public:
    Parser(const std::string& name, const ScenarioSetting& setting)
        : setting_(setting), models_(setting.models) {
        scenario_.name = name;
    }

    host::Result<void> Take(std::string line, int number) {
        if (line.find('\0') != std::string::npos) {
            return host::Error("expected text, found a zero byte");
        }
        const auto all_words = SplitWords(line, values_);
        if (!all_words.ok()) return host::Error(all_words.error());
        std::span<const std::string> words = *all_words;
        while (!words.empty() && (words[0] == "when" || words[0] == "unless")) {
            const auto holds = Holds(words);
            if (!holds.ok()) return host::Error(holds.error());
            if (!*holds) return {};
            words = words.subspan(2);
        }
        auto command = ParseCommand(words);
        if (!command.ok()) return host::Error(command.error());
        if (command->verb == nullptr) return {};
        if (command->verb->where == Where::kShell) {
            return host::Error(std::string("expected a verb of scenarios, found '") +
                               command->verb->name + "', which is for the shell only");
        }
        if (command->verb->where == Where::kBeginning) return TakeSetting(*command);
        line.erase(0, line.find_first_not_of(" \t"));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        const bool is_as_it_stands =
                words.size() == all_words->size() && all_words == SplitWords(line);
        return TakeStep({.line = number,
                         .text = is_as_it_stands ? line : JoinWords(words),
                         .command = std::move(*command)});
    }

    // The first value that was set from outside and that the scenario does not have.
    std::optional<std::string> FindUnknownValue() const {
        for (const auto& [name, ignored] : setting_.values) {
            if (!values_.contains(name)) return UnknownValue(name, values_);
        }
        return std::nullopt;
    }
    Scenario& scenario() { return scenario_; }

  private:
    // Whether a line is there that begins with `when` or `unless`.
    host::Result<bool> Holds(std::span<const std::string> words) const {
        const auto condition = ParseCommand(words);
        if (!condition.ok()) return host::Error(condition.error());
        const auto value = values_.find(condition->values.Get("NAME"));
        if (value == values_.end()) return host::Error(UnknownValue(words[1], values_));
        const bool is_on = !value->second.empty() && value->second != "off";
        return is_on == (words[0] == "when");
    }

    // Takes what a verb at the beginning of a file sets.
    host::Result<void> TakeSetting(const Command& command) {
        const std::string verb = command.verb->name;
        if (!scenario_.steps.empty()) {
            return host::Error("expected '" + verb + "' before all other verbs, found it after '" +
                               scenario_.steps.front().text + "'");
        }
        if (verb == "seed") scenario_.seed = static_cast<uint32_t>(command.values.Number("SEED"));
        if (verb == "speed") scenario_.speed = command.values.Number("SPEED");
        if (verb != "value") return {};
        const std::string name = command.values.Get("NAME");
        if (name.find_first_not_of(kNameLetters) != std::string::npos) {
            return host::Error("expected a name of small letters and '_', found '" + name + "'");
        }
        const auto set = setting_.values.find(name);
        values_[name] = set == setting_.values.end() ? command.values.Get("DATA") : set->second;
        return {};
    }

    host::Result<void> TakeStep(Scenario::Line step) {
        const Values& values = step.command.values;
        if (auto checked = CheckModel(values); !checked.ok()) return checked;
        if (Is(step.command, "phone start")) {
            if (auto checked = CheckPhoneStart(); !checked.ok()) return checked;
        }
        if (Is(step.command, "load")) models_.push_back(values.Get("NAME"));
        if (Is(step.command, "heading")) needs_detection_ = false;
        if (Is(step.command, "heading if-detected")) needs_detection_ = true;
        step.needs_detection = needs_detection_;
        const bool is_first = scenario_.steps.empty();
        if (Is(step.command, "explain") && !is_first &&
            Is(scenario_.steps.back().command, "explain")) {
            Scenario::Line& before = scenario_.steps.back();
            const std::string text = before.command.values.Get("TEXT") + " " + values.Get("TEXT");
            before.command.values.Set("TEXT", text);
            before.text = JoinWords(std::array<std::string, 2>{"explain", text});
        } else {
            scenario_.steps.push_back(std::move(step));
        }
        return {};
    }

    // Any number may be a handle; a name has to be that of a model which a line above loads.
    host::Result<void> CheckModel(const Values& values) const {
        for (const char* const value : {"MODEL", "model"}) {
            const std::string name = values.Get(value);
            if (std::ranges::find(models_, name) != models_.end()) continue;
            if (name.find_first_not_of("0123456789") == std::string::npos) continue;
            return host::Error("expected the name of a model that is loaded above, found '" + name +
                               "'" + DidYouMean(name, models_));
        }
        return {};
    }

    // What stands above has to do without a phone.
    host::Result<void> CheckPhoneStart() const {
        for (const auto& [line, text, command, ignored] : scenario_.steps) {
            if (command.verb->needs == PhoneParts::kNone && !Is(command, "phone start")) continue;
            return host::Error(
                    "expected 'phone start' above all that needs a phone, found it after '" + text +
                    "'");
        }
        return {};
    }

    const ScenarioSetting& setting_;
    NamedTexts values_;
    std::vector<std::string> models_;  // Loaded so far.
    bool needs_detection_ = false;     // The part that the latest heading began.
    Scenario scenario_;
};

// What a pipe or a terminal holds can be read once only, by the verb.
bool CanBeReadTwice(const std::string& path) {
    std::error_code error;
    return !std::filesystem::is_fifo(path, error) &&
           !std::filesystem::is_character_file(path, error);
}

host::Error AtLine(const std::string& name, int line, const std::string& problem) {
    return host::Error(name + ":" + std::to_string(line) + ": " + problem);
}

}  // namespace

bool Scenario::StartsPhone() const {
    return std::ranges::any_of(steps,
                               [](const Line& step) { return Is(step.command, "phone start"); });
}

host::Result<Scenario> ParseScenario(std::string_view text, const std::string& name,
                                     const ScenarioSetting& setting) {
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // Some editors write one.
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    Parser parser(name, setting);
    std::istringstream lines{std::string(text)};
    int number = 1;
    for (std::string line; std::getline(lines, line); ++number) {
        const auto taken = parser.Take(line, number);
        if (!taken.ok()) return AtLine(name, number, taken.error());
    }
    if (const auto unknown = parser.FindUnknownValue()) return host::Error(name + ": " + *unknown);
    if (!parser.scenario().steps.empty()) return std::move(parser.scenario());
    return AtLine(name, number, "expected a verb, found the end of the file");
}

host::Result<Scenario> ReadScenario(const std::string& path, const ScenarioSetting& setting) {
    const auto bytes = audio::ReadFileBytes(path);
    if (!bytes.ok()) return host::Error(bytes.error());
    auto scenario = ParseScenario({reinterpret_cast<const char*>(bytes->data()), bytes->size()},
                                  path, setting);
    if (!scenario.ok()) return scenario;
    if (const auto checked = CheckFiles(*scenario); !checked.ok()) {
        return host::Error(checked.error());
    }
    return scenario;
}

host::Result<void> CheckFiles(const Scenario& scenario) {
    for (const Scenario::Line& step : scenario.steps) {
        const auto& [verb, values] = step.command;
        const auto can_be_read_twice = [&](const char* file) {
            return CanBeReadTwice(step.command.values.Get(file));
        };
        if (verb->check == nullptr) continue;
        if (!std::ranges::all_of(std::array{"FILE", "wav", "hotword"}, can_be_read_twice)) continue;
        const auto checked = verb->check(values);
        if (!checked.ok()) return AtLine(scenario.name, step.line, checked.error());
    }
    return {};
}

namespace {

VerbResult RunStep(const Scenario::Line& step, bool is_failure_expected, Session& session) {
    const Verb& verb = *step.command.verb;
    if (!verb.tells_itself) {
        session.record().Add(StoryStep{.ns = virtual_dsp::BoottimeNow(),
                                       .kind = StoryStep::Kind::kVerb,
                                       .text = step.text});
    }
    VerbResult result = verb.run(session, step.command.values);
    if (!result.ok()) return result;
    if (session.IsInterrupted()) return VerbResult::Interrupted();
    if (is_failure_expected) return {};
    if (const auto failed = session.TakeFailedResult()) {
        const std::string number = std::to_string(*failed);
        return VerbResult::Expected("the result 0", number +
                                                            " (if it is meant to fail, write "
                                                            "'expect result " +
                                                            number + "' below it)");
    }
    return {};
}

}  // namespace

VerbResult RunScenario(const Scenario& scenario, Session& session) {
    const auto at_step = [&](const Scenario::Line& step, VerbResult result) {
        if (result.failure) {
            result.failure->file = scenario.name;
            result.failure->line = step.line;
            result.failure->verb = step.text;
        }
        return result;
    };
    for (const Scenario::Line& step : scenario.steps) {
        const auto checked = session.CheckParts(step.command.verb->needs);
        if (!checked.ok()) return at_step(step, VerbResult::Of(checked));
    }
    (void)session.TakeFailedResult();
    for (auto step = scenario.steps.begin(); step != scenario.steps.end(); ++step) {
        if (step->needs_detection && !session.HasDetection()) continue;
        const auto next = std::next(step);
        const bool is_failure_expected =
                next != scenario.steps.end() && Is(next->command, "expect result");
        VerbResult result = RunStep(*step, is_failure_expected, session);
        if (!result.ok()) return at_step(*step, std::move(result));
    }
    return {};
}

}  // namespace sthal
