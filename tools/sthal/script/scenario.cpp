#include "tools/sthal/script/scenario.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <utility>

#include "tools/audio/file_bytes.h"

namespace sthal {

namespace {

std::string Place(const std::string& name, int line) {
    return name + ":" + std::to_string(line) + ": ";
}

// What a verb at the beginning of a file sets; else what is wrong with its place.
std::string TakeSetting(const Command& command, Scenario& scenario) {
    const std::string_view name = command.verb->name;
    if (!scenario.steps.empty()) {
        return "expected '" + std::string(name) + "' before all other verbs, found it after '" +
               scenario.steps.front().text + "'";
    }
    const char* const value = command.values[0].c_str();
    if (name == "seed") scenario.seed = static_cast<uint32_t>(std::strtoul(value, nullptr, 10));
    if (name == "speed") scenario.speed = std::strtod(value, nullptr);
    return {};
}

// The model that a command names, if it names one.
std::optional<std::string> ModelOf(const Command& command) {
    if (std::string_view(command.verb->form).starts_with("MODEL")) return command.values[0];
    if (command.values.Has("model")) return command.values.Get("model");
    return std::nullopt;
}

// What is wrong with the name of a command's model, if it has one: no line above loads it.
// Any number may be a handle.
std::string ModelProblem(const Command& command, const std::vector<std::string>& models) {
    const auto name = ModelOf(command);
    if (!name || std::ranges::find(models, *name) != models.end()) return {};
    if (std::ranges::all_of(*name, [](char c) { return c >= '0' && c <= '9'; })) return {};
    const auto nearest = NearestMatch(*name, models);
    return "expected the name of a model that is loaded above, found '" + *name + "'" +
           (nearest ? "; did you mean '" + *nearest + "'?" : "");
}

// The failure of a call whose result nobody expected.
Outcome UnexpectedResult(const Scenario& scenario, const Scenario::Step& step, int result) {
    return Outcome::Failed(Place(scenario.name, step.line) + "'" + step.text +
                           "': expected the result 0; saw " + std::to_string(result) +
                           " (if it is meant to fail, write 'expect result " +
                           std::to_string(result) + "' below it)");
}

}  // namespace

audio::Result<Scenario> ParseScenario(std::string_view text, const std::string& name,
                                      std::vector<std::string> models) {
    using Parsed = audio::Result<Scenario>;
    constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // Some editors write one.
    if (text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    Scenario scenario{.name = name, .steps = {}, .seed = {}, .speed = {}};
    std::istringstream lines{std::string(text)};
    int number = 1;
    for (std::string line; std::getline(lines, line); ++number) {
        if (line.find('\0') != std::string::npos) {
            return Parsed::Error(Place(name, number) + "expected text, found a zero byte");
        }
        auto command = ParseCommand(line);
        if (!command) return Parsed::Error(Place(name, number) + command.error);
        const Verb* const verb = command->verb;
        if (verb == nullptr) continue;
        if (verb->where == Verb::Where::kShell) {
            return Parsed::Error(Place(name, number) + "expected a verb of scenarios, found '" +
                                 verb->name + "', which is for the shell only");
        }
        if (verb->where == Verb::Where::kBeginning) {
            const std::string problem = TakeSetting(*command, scenario);
            if (!problem.empty()) return Parsed::Error(Place(name, number) + problem);
            continue;
        }
        const std::string problem = ModelProblem(*command.value, models);
        if (!problem.empty()) return Parsed::Error(Place(name, number) + problem);
        if (std::string_view(verb->name) == "load") models.push_back(command->values[1]);
        line.erase(0, line.find_first_not_of(" \t"));
        line.erase(line.find_last_not_of(" \t\r") + 1);
        scenario.steps.push_back(
                {.line = number, .text = line, .command = std::move(*command.value)});
    }
    if (scenario.steps.empty()) {
        return Parsed::Error(Place(name, number) + "expected a verb, found the end of the file");
    }
    return Parsed::Of(std::move(scenario));
}

audio::Result<Scenario> ReadScenario(const std::string& path,
                                     const std::vector<std::string>& models) {
    using Read = audio::Result<Scenario>;
    const auto bytes = audio::ReadFileBytes(path);
    if (!bytes) return Read::Error(bytes.error);
    auto scenario = ParseScenario({reinterpret_cast<const char*>(bytes->data()), bytes->size()},
                                  path, models);
    if (!scenario) return scenario;
    for (const Scenario::Step& step : scenario->steps) {
        const auto find_problem = step.command.verb->find_problem;
        const std::string problem = find_problem ? find_problem(step.command.values) : "";
        if (!problem.empty()) return Read::Error(Place(path, step.line) + problem);
    }
    return scenario;
}

Outcome RunScenario(const Scenario& scenario, Session& session) {
    (void)session.TakeFailedResult();
    for (size_t i = 0; i < scenario.steps.size(); ++i) {
        const Scenario::Step& step = scenario.steps[i];
        session.Say("> " + step.text);
        Outcome outcome = step.command.verb->run(session, step.command.values);
        if (!outcome.ok()) {
            outcome.text = Place(scenario.name, step.line) + "'" + step.text + "': " + outcome.text;
            return outcome;
        }
        if (session.IsInterrupted()) return {.kind = Outcome::Kind::kInterrupted, .text = {}};
        const bool is_expected =
                i + 1 < scenario.steps.size() &&
                std::string_view(scenario.steps[i + 1].command.verb->name) == "expect result";
        if (is_expected) continue;
        if (const auto result = session.TakeFailedResult()) {
            return UnexpectedResult(scenario, step, *result);
        }
    }
    return {};
}

}  // namespace sthal
